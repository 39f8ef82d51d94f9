/* Prints the signed-in user's profile: asks for the attribute names, then for the values of all of them.
 *
 *     identity_profile [--async] [--known KEY]...
 *
 * --async      uses the Async and Wait pairs instead of the calls that block
 * --known KEY  asks for this attribute only (0 to 7); may be given several times; not with --async
 *
 * Exit status: 0 when the profile was printed, 1 when a call failed (its result stands on standard error),
 * 2 when the command line is wrong.
 */

#include <inttypes.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vq_identity.h"

enum { MAX_KEYS = 8, WAIT_MS = 4000 };

struct options {
    bool async;
    VQIdentityAttributeKey keys[MAX_KEYS];
    uint32_t key_count;
};

static bool read_options(int argc, char** argv, struct options* options) {
    memset(options, 0, sizeof *options);
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--async") == 0) {
            options->async = true;
        } else if (strcmp(argv[i], "--known") == 0 && i + 1 < argc && options->key_count < MAX_KEYS) {
            char* end = NULL;
            long const key = strtol(argv[++i], &end, 10);
            if (end == argv[i] || *end != '\0' || key < 0 || key > 7) {
                return false;
            }
            options->keys[options->key_count++] = (VQIdentityAttributeKey)key;
        } else {
            return false;
        }
    }
    return !(options->async && options->key_count > 0);
}

/* True when the call succeeded; otherwise says which one failed and how. */
static bool succeeded(char const* call, VQResult result) {
    if (result == VQResult_Ok) {
        return true;
    }
    fprintf(stderr, "%s: %s (0x%" PRIX32 ")\n", call, VQIdentityGetResultString(result), result);
    return false;
}

static bool get_names(struct options const* options, VQIdentityProfile** profile) {
    if (options->async) {
        uint64_t future = 0;
        return succeeded("VQIdentityGetAttributeNamesAsync", VQIdentityGetAttributeNamesAsync(&future)) &&
               succeeded("VQIdentityGetAttributeNamesWait",
                         VQIdentityGetAttributeNamesWait(future, WAIT_MS, profile));
    }
    if (options->key_count > 0) {
        return succeeded("VQIdentityGetKnownAttributeNames",
                         VQIdentityGetKnownAttributeNames(options->keys, options->key_count, profile));
    }
    return succeeded("VQIdentityGetAttributeNames", VQIdentityGetAttributeNames(profile));
}

static bool request_values(struct options const* options, VQIdentityProfile* profile) {
    for (uint32_t i = 0; i < profile->attribute_count; ++i) {
        profile->attribute_ptrs[i]->is_requested = true;
    }
    if (options->async) {
        uint64_t future = 0;
        return succeeded("VQIdentityRequestAttributeValuesAsync",
                         VQIdentityRequestAttributeValuesAsync(profile, &future)) &&
               succeeded("VQIdentityRequestAttributeValuesWait",
                         VQIdentityRequestAttributeValuesWait(future, WAIT_MS));
    }
    return succeeded("VQIdentityRequestAttributeValues", VQIdentityRequestAttributeValues(profile));
}

static void print_profile(VQIdentityProfile const* profile) {
    printf("%-4s %-20s %-36s %s\n", "key", "name", "value", "granted");
    for (uint32_t i = 0; i < profile->attribute_count; ++i) {
        VQIdentityAttribute const* attribute = profile->attribute_ptrs[i];
        printf("%-4d %-20s %-36s %s\n", (int)attribute->key, attribute->name, attribute->value,
               attribute->is_granted ? "yes" : "no");
    }
}

int main(int argc, char** argv) {
    struct options options;
    if (!read_options(argc, argv, &options)) {
        fprintf(stderr, "usage: %s [--async] [--known KEY]...\n", argv[0]);
        return 2;
    }

    VQIdentityProfile* profile = NULL;
    if (!get_names(&options, &profile) || !request_values(&options, profile)) {
        return 1;
    }
    print_profile(profile);
    return succeeded("VQIdentityReleaseUserProfile", VQIdentityReleaseUserProfile(profile)) ? 0 : 1;
}
