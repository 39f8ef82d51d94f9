/**
 * @file
 * The profile of the signed-in user, as a device on this machine provides it. C99 and C++.
 *
 * Usual course: VQIdentityGetAttributeNames (or VQIdentityGetKnownAttributeNames), set is_requested in the
 * records that you want, VQIdentityRequestAttributeValues, read value and is_granted,
 * VQIdentityReleaseUserProfile. The ...Async and ...Wait pairs do the same in two steps each. Nothing has to
 * be called first: the first call starts the library's connection, and the first call after a release starts
 * it anew.
 *
 * Threads: the functions may be called from any thread, but never two at once; the caller serialises its
 * calls. VQIdentityGetResultString alone is free of this rule. A thread that is cancelled (pthread_cancel) in
 * the middle of a call ends the process.
 *
 * Processes: a child that is forked off a process that is connected has neither threads nor sockets of the
 * library: in it every call but VQIdentityGetResultString fails. It executes another program or ends, best by
 * _exit.
 *
 * Time: a call waits up to 15 s for the connection and then up to 5 s to send and 5 s more for the answer.
 * The first one on a connection also asks the local server who the provider is, and a release takes leave of
 * the server, both of which are quick unless the server hangs.
 *
 * Results: a provider's own non-zero code is returned as it stands. Every function but
 * VQIdentityGetResultString also returns, beside the codes listed at it,
 *   VQResult_UnspecifiedFailure                     when the library could not be initialised or is used in a
 *                                                   forked child, and
 *   VQIdentityResult_FailedToConnectToLocalService  when there was no connection to the local server in 15 s.
 */
#ifndef VQ_IDENTITY_H
#define VQ_IDENTITY_H

#include <stdbool.h>
#include <stdint.h>

#include "vq_result.h"

VQ_EXTERN_C_BEGIN

/** Result code of the identity interface, in the code space of VQResult. */
typedef VQResult VQIdentityResult;

/** Values of VQIdentityResult, beside those that all interfaces share. */
enum {
    VQIdentityResult_FailedToConnectToLocalService = 0x7D4D0000,
    VQIdentityResult_FailedToConnectToCloudService = 0x7D4D0001,
    VQIdentityResult_CloudAuthentication = 0x7D4D0002,
    VQIdentityResult_InvalidInformationFromCloud = 0x7D4D0003,
    VQIdentityResult_NotLoggedIn = 0x7D4D0004,
    VQIdentityResult_ExpiredCredentials = 0x7D4D0005,
    VQIdentityResult_FailedToGetUserProfile = 0x7D4D0006,
    VQIdentityResult_Unauthorized = 0x7D4D0007,
    VQIdentityResult_CertificateError = 0x7D4D0008,
    VQIdentityResult_RejectedByCloud = 0x7D4D0009,
    VQIdentityResult_AlreadyLoggedIn = 0x7D4D000A,
    VQIdentityResult_ModifyIsNotSupported = 0x7D4D000B,
    VQIdentityResult_NetworkError = 0x7D4D000C
};

/**
 * Which attribute a record holds. The meaning of a key is the provider's, who also names it: see
 * VQIdentityAttribute.name. Exactly the values 0 to 7 are valid; any other value, in a call or in a record,
 * ends the process.
 */
typedef enum VQIdentityAttributeKey {
    VQIdentityAttributeKey_0 = 0,
    VQIdentityAttributeKey_1 = 1,
    VQIdentityAttributeKey_2 = 2,
    VQIdentityAttributeKey_3 = 3,
    VQIdentityAttributeKey_4 = 4,
    VQIdentityAttributeKey_5 = 5,
    VQIdentityAttributeKey_6 = 6,
    VQIdentityAttributeKey_7 = 7,
    VQIdentityAttributeKey_Ensure32Bits = 0x7FFFFFFF /**< never a key: keeps the type at 32 bits */
} VQIdentityAttributeKey;

/** One attribute of the profile. The library owns the record and its texts. */
typedef struct VQIdentityAttribute {
    VQIdentityAttributeKey key; /**< which attribute it is */
    char const* name;           /**< NUL-terminated */
    char const* value;          /**< NUL-terminated; empty until values have been requested and granted */
    bool is_requested;          /**< set by the caller before values are requested: this value is wanted */
    bool is_granted;            /**< set by the provider: this value was granted */
} VQIdentityAttribute;

/**
 * The profile. The library owns it, its records and its texts; there is one in a process. The caller frees
 * nothing, may change is_requested in the records, and keeps no pointer to a record or a text beyond the next
 * call that refreshes the profile. The pointer to the profile itself stays good until the process ends.
 */
typedef struct VQIdentityProfile {
    uint32_t attribute_count; /**< how many attributes there are */
    /** attribute_count pointers; null in an empty profile and before names have been fetched */
    VQIdentityAttribute** attribute_ptrs;
} VQIdentityProfile;

/**
 * Asks the provider for every attribute that it knows, names without values. Empties the profile first, and
 * stores its pointer in *out_profile also when the call fails after that.
 *
 * @param out_profile must not be null: it is not tested.
 * @return VQResult_Ok, VQResult_UnspecifiedFailure when the provider could not be asked, or the provider's
 * code. A successful answer without any attribute ends the process; so does one that counts more attributes
 * than it holds.
 */
VQ_API VQResult VQIdentityGetAttributeNames(VQIdentityProfile** out_profile) VQ_NOEXCEPT;

/**
 * As VQIdentityGetAttributeNames, for the given keys alone.
 *
 * @param keys key_count valid keys (any other value ends the process); may be null when key_count is 0.
 * @param key_count 0 is allowed; the request then names no key.
 * @param out_profile as there.
 * @return as there.
 */
VQ_API VQResult VQIdentityGetKnownAttributeNames(VQIdentityAttributeKey const* keys, uint32_t key_count,
                                                 VQIdentityProfile** out_profile) VQ_NOEXCEPT;

/**
 * Sends the profile, as its records stand at this moment, to the provider and refreshes it from the answer.
 * Before any call that fetched names the profile is empty, and the answer's attributes are then counted but
 * not shown: attribute_ptrs stays null.
 *
 * @param profile not read: the library's own profile is sent.
 * @return VQResult_Ok, VQResult_UnspecifiedFailure when the provider could not be asked, or the provider's
 * code. An answer that counts more attributes than it holds ends the process.
 */
VQ_API VQResult VQIdentityRequestAttributeValues(VQIdentityProfile const* profile) VQ_NOEXCEPT;

/**
 * Tells the provider that the profile is no longer used, then closes the connection and ends the library's
 * threads. The records stay readable until the next call that refreshes the profile. The next call connects
 * anew; futures stay valid.
 *
 * @param profile not read.
 * @return VQResult_Ok, or VQIdentityResult_FailedToConnectToCloudService when the provider could not be
 * asked; the connection then stays.
 */
VQ_API VQResult VQIdentityReleaseUserProfile(VQIdentityProfile* profile) VQ_NOEXCEPT;

/**
 * Starts VQIdentityGetAttributeNames at the provider.
 *
 * @param out_future receives a future, never 0, for VQIdentityGetAttributeNamesWait. A future can be waited
 * on any number of times and is never given up. Null: VQResult_InvalidParam, at once.
 * @return VQResult_Ok, or VQIdentityResult_FailedToConnectToCloudService when the provider could not be
 * asked.
 */
VQ_API VQResult VQIdentityGetAttributeNamesAsync(uint64_t* out_future) VQ_NOEXCEPT;

/**
 * Fetches the answer to a future. Empties the profile first, also when the future turns out to be unknown.
 *
 * @param future from either ...Async function. Unknown: VQResult_UnspecifiedFailure.
 * @param timeout how long the provider may wait, in milliseconds; passed on to it. The call's own limits do
 * not change.
 * @param out_profile receives the profile. Null: VQResult_InvalidParam, at once.
 * @return VQResult_Ok, VQIdentityResult_FailedToConnectToCloudService when the provider could not be asked,
 * or the provider's code. A successful answer without any attribute ends the process; so does one that counts
 * more attributes than it holds.
 */
VQ_API VQResult VQIdentityGetAttributeNamesWait(uint64_t future, uint32_t timeout,
                                                VQIdentityProfile** out_profile) VQ_NOEXCEPT;

/**
 * Starts VQIdentityRequestAttributeValues at the provider.
 *
 * @param profile not read: the library's own profile is sent.
 * @param out_future receives a future for VQIdentityRequestAttributeValuesWait, as above. Null:
 * VQResult_InvalidParam, but only once there is a connection.
 * @return VQResult_Ok, or VQIdentityResult_FailedToConnectToCloudService when the provider could not be
 * asked.
 */
VQ_API VQResult VQIdentityRequestAttributeValuesAsync(VQIdentityProfile const* profile,
                                                      uint64_t* out_future) VQ_NOEXCEPT;

/**
 * Fetches the answer to a future and refreshes the profile from it.
 *
 * @param future from either ...Async function. Unknown: VQResult_UnspecifiedFailure, and the profile stays.
 * @param timeout how long the provider may wait, in milliseconds; passed on to it. The call's own limits do
 * not change.
 * @return VQResult_Ok, VQIdentityResult_FailedToConnectToCloudService when the provider could not be asked,
 * or the provider's code. An answer that counts more attributes than it holds ends the process.
 */
VQ_API VQResult VQIdentityRequestAttributeValuesWait(uint64_t future, uint32_t timeout) VQ_NOEXCEPT;

/**
 * The name of a code. Needs no connection and may be called at any time from any thread.
 *
 * @param code of VQResult or VQIdentityResult.
 * @return a static text, never null; "Unknown" for any other code.
 */
VQ_API char const* VQIdentityGetResultString(uint32_t code) VQ_NOEXCEPT;

VQ_EXTERN_C_END

#endif /* VQ_IDENTITY_H */
