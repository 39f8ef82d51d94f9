// The public headers, on their own, in strict C99: compiled, and its layout checks are the test.

#include "vq_token_agent.h"

#include "vq_identity.h"

typedef char KeyIsFourBytes[sizeof(VQIdentityAttributeKey) == 4 ? 1 : -1];
typedef char FlagIsOneByte[sizeof(((VQIdentityAttribute*)0)->is_granted) == 1 ? 1 : -1];

VQResult vq_header_c99_uses_the_interface(void);

VQResult vq_header_c99_uses_the_interface(void) {
    VQIdentityProfile profile = {0, 0};
    return VQIdentityRequestAttributeValues(&profile) == VQIdentityResult_NotLoggedIn ? VQResult_Ok
                                                                                      : VQResult_InvalidParam;
}
