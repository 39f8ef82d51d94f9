#include "Logging/LogParameters.h"
#include "RequestTable.h"

namespace vq::server {

void ServeLogRequests(RequestTable& table) {
    table.Serve<vq::vds::GetLogParameters>([](vq::vds::GetLogParameters const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetLogParameters::Reply>();
        for (std::string& parameter : DescribeLogParameters()) {
            reply->add_parameters(std::move(parameter));
        }
        return reply;
    });
    table.Serve<vq::vds::SetLogParameters>([](vq::vds::SetLogParameters const& request) {
        std::string errors;
        bool const applied =
            ApplyLogParameters({request.parameters().begin(), request.parameters().end()}, errors);
        return applied ? Reply<vq::vds::SetLogParameters>() : GeneralError(errors);
    });
}

}  // namespace vq::server
