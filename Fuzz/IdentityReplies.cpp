// What a provider of identity answers, on its way into the records that C callers read.

#include <google/protobuf/stubs/common.h>

#include "FuzzTarget.h"
#include "Identity.pb.h"
#include "QuietLog.h"
#include "identity/ProfileCache.h"

void TryInput(std::string_view input) {
    KeepLogQuiet();
    google::protobuf::SetLogHandler(nullptr);
    vq::sd::VQIdentityGetAttributeNames::Reply reply;
    if (!reply.ParseFromArray(input.data(), static_cast<int>(input.size()))) {
        return;
    }
    vq::sd::VQIdentityProfile const& profile = reply.profile();
    if (profile.attribute_count() == 0 ||
        profile.attribute_count() > static_cast<std::uint32_t>(profile.attributes_size())) {
        return;  // an application ends at such a reply
    }
    vq::IdentityShim::ProfileCache cache;
    VQIdentityProfile* records = cache.Profile();
    cache.PullOutProfile(profile);
    FUZZ_CHECK(cache.FillVQProfileAttributeNames(&records));
    vq::sd::VQIdentityProfile again;
    cache.FillMessage(again);
    FUZZ_CHECK(again.attribute_count() == profile.attribute_count());
    for (int i = 0; i < again.attributes_size(); ++i) {
        FUZZ_CHECK(again.attributes(i).key() == profile.attributes(i).key());
        // A record's text ends at the first NUL.
        FUZZ_CHECK(again.attributes(i).name() == profile.attributes(i).name().c_str());
    }
}
