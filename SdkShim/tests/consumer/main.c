/* The headers and the layout of their records, in whatever language this is compiled as. */
#include <vq_token_agent.h>

#include <vq_identity.h>

#include <string.h>

typedef char KeyIsFourBytes[sizeof(VQIdentityAttributeKey) == 4 ? 1 : -1];
typedef char FlagIsOneByte[sizeof(((VQIdentityAttribute*)0)->is_granted) == 1 ? 1 : -1];

int main(void) {
    return strcmp(VQIdentityGetResultString(VQResult_Ok), VQTokenAgentGetResultString(VQResult_Ok));
}
