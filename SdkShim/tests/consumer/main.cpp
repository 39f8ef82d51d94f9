#include <vq_identity.h>
#include <vq_token_agent.h>

#include <string>

int main() {
    return std::string(VQIdentityGetResultString(VQResult_Ok)) == VQTokenAgentGetResultString(VQResult_Ok)
               ? 0
               : 1;
}
