/**
 * @file
 * The token agent interface: client credentials of the signed-in user. C99 and C++.
 *
 * It is declared so that applications link, but not carried out on a desktop: every function but
 * VQTokenAgentGetResultString returns VQResult_NotImplemented at once, reads none of its arguments and writes
 * to none of them. The first call of each says so in one warning line. None of them needs a connection.
 *
 * Threads: the functions may be called from any thread, but never two at once; VQTokenAgentGetResultString
 * alone is free of this rule.
 */
#ifndef VQ_TOKEN_AGENT_H
#define VQ_TOKEN_AGENT_H

#include <stdint.h>

#include "vq_result.h"

VQ_EXTERN_C_BEGIN

/** Result code of the token agent interface, in the code space of VQResult. */
typedef VQResult VQTokenAgentResult;

/** Values of VQTokenAgentResult, beside those that all interfaces share. */
enum {
    VQTokenAgentResult_FailedToConnectToLocalService = 0x37EE0000,
    VQTokenAgentResult_ServiceNotStarted = 0x37EE0001,
    VQTokenAgentResult_FailedToConnectToCloud = 0x37EE0002,
    VQTokenAgentResult_CloudAuthentication = 0x37EE0003,
    VQTokenAgentResult_FailedToLogin = 0x37EE0004,
    VQTokenAgentResult_LoginNotBegun = 0x37EE0005,
    VQTokenAgentResult_NotLoggedIn = 0x37EE0006,
    VQTokenAgentResult_AlreadyLoggedIn = 0x37EE0007,
    VQTokenAgentResult_LoginInProgress = 0x37EE0008,
    VQTokenAgentResult_FailedToStartIdentityService = 0x37EE0009,
    VQTokenAgentResult_DeviceNotRegistered = 0x37EE000A,
    VQTokenAgentResult_DeviceNotConnected = 0x37EE000B,
    VQTokenAgentResult_NetworkError = 0x37EE000C,
    VQTokenAgentResult_UserIsNotRegistered = 0x37EE000D,
    VQTokenAgentResult_ExpiredCredentials = 0x37EE000E,
    VQTokenAgentResult_Unauthorized = 0x37EE000F,
    VQTokenAgentResult_CertificateError = 0x37EE0010,
    VQTokenAgentResult_RejectedByCloud = 0x37EE0011,
    VQTokenAgentResult_UserMustAcceptTerms = 0x37EE0012,
    VQTokenAgentResult_AccountLocked = 0x37EE0013
};

/** Credentials of the client. Opaque here: the library never makes one. */
typedef struct VQTokenAgentClientCredentials VQTokenAgentClientCredentials;

/**
 * Would fetch the credentials.
 *
 * @param out_credentials not read and not written to.
 * @return VQResult_NotImplemented.
 */
VQ_API VQResult VQTokenAgentGetClientCredentials(VQTokenAgentClientCredentials** out_credentials) VQ_NOEXCEPT;

/**
 * Would start fetching the credentials.
 *
 * @param out_future not read and not written to.
 * @return VQResult_NotImplemented.
 */
VQ_API VQResult VQTokenAgentGetClientCredentialsAsync(uint64_t* out_future) VQ_NOEXCEPT;

/**
 * Would wait for the credentials.
 *
 * @param future not read.
 * @param timeout not read; in milliseconds.
 * @param out_credentials not read and not written to.
 * @return VQResult_NotImplemented.
 */
VQ_API VQResult VQTokenAgentGetClientCredentialsWait(
    uint64_t future, uint32_t timeout, VQTokenAgentClientCredentials** out_credentials) VQ_NOEXCEPT;

/**
 * Would give the credentials back.
 *
 * @param credentials not read.
 * @return VQResult_NotImplemented.
 */
VQ_API VQResult VQTokenAgentReleaseClientCredentials(VQTokenAgentClientCredentials* credentials) VQ_NOEXCEPT;

/**
 * The name of a code. May be called at any time from any thread.
 *
 * @param code of VQResult or VQTokenAgentResult.
 * @return a static text, never null; "Unknown" for any other code.
 */
VQ_API char const* VQTokenAgentGetResultString(uint32_t code) VQ_NOEXCEPT;

VQ_EXTERN_C_END

#endif /* VQ_TOKEN_AGENT_H */
