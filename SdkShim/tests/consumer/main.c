#include <string.h>
#include <vq_identity.h>
#include <vq_token_agent.h>

int main(void) {
    return strcmp(VQIdentityGetResultString(VQResult_Ok), VQTokenAgentGetResultString(VQResult_Ok));
}
