#include "DeviceCommands.h"

#include <zmq.h>

#include <exception>
#include <utility>
#include <vector>

#include "Logging/Log.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessageContext.h"
#include "ServerEndpoints.h"
#include "SocketUrl.h"

namespace vq::server {

using std::chrono::milliseconds;

namespace {

/// There is no answer.
void Report(DeviceCommands::OnAnswer const& onAnswer) {
    if (onAnswer) {
        onAnswer([](google::protobuf::MessageLite&) { return false; });
    }
}

}  // namespace

DeviceCommands::DeviceCommands(ZMQMessagePipeProvider& provider, DescriptorPoll& poll)
    : m_provider(provider), m_poll(poll) {}

DeviceCommands::~DeviceCommands() {
    for (auto exchange = m_exchanges.begin(); exchange != m_exchanges.end();) {
        exchange = End(exchange);
    }
}

void DeviceCommands::Send(Device const& device, google::protobuf::MessageLite const& request,
                          milliseconds limit, OnAnswer const& onAnswer) {
    if (!Begin(device, request, limit, onAnswer)) {
        Report(onAnswer);
    }
}

bool DeviceCommands::Begin(Device const& device, google::protobuf::MessageLite const& request,
                           milliseconds limit, OnAnswer const& onAnswer) {
    std::string const what = request.GetTypeName() + " to device '" + device.name + "'";
    if (m_exchanges.size() >= kMaximum) {
        LOG_W("Not sending %s: %zu exchanges are under way", what.c_str(), m_exchanges.size());
        return false;
    }
    try {
        auto pipe = Connect(MessageAddress::FromString(device.address));
        if (!MessageUtils::Send(pipe.get(), request, milliseconds(0), nullptr)) {
            LOG_W("Cannot send %s", what.c_str());
            return false;
        }
        std::uint64_t const number = m_next++;
        m_poll.Watch(DescriptorOf(*pipe), [this, number] { return TakeAnswer(number); });
        m_exchanges.emplace(number, Exchange{.what = what,
                                             .deadline = std::chrono::steady_clock::now() + limit,
                                             .pipe = std::move(pipe),
                                             .onAnswer = onAnswer});
        return true;
    } catch (std::exception const& error) {  // no socket or descriptor left, or a strange address
        LOG_W("Cannot send %s at %s: %s", what.c_str(), device.address.c_str(), error.what());
        return false;
    }
}

std::unique_ptr<ZMQMessagePipeRequestReply> DeviceCommands::Connect(MessageAddress const& address) {
    auto* const context = static_cast<ZMQMessageContext*>(m_provider.GetContext());
    auto socket = std::make_unique<zmq::socket_t>(*context->GetZMQContext(), ZMQ_REQ);
    socket->set(zmq::sockopt::linger, 0);
    socket->set(zmq::sockopt::maxmsgsize, ServerEndpoints::kMaximumMessageSize);
    socket->connect(UrlOf(address));
    auto pipe = std::make_unique<ZMQMessagePipeRequestReply>(context, address, "", socket.get(), true);
    static_cast<void>(socket.release());
    return pipe;
}

bool DeviceCommands::TakeAnswer(std::uint64_t number) {
    auto const found = m_exchanges.find(number);
    if (found == m_exchanges.end()) {
        return false;
    }
    bool timedOut = false;
    std::unique_ptr<AMessage> const answer(found->second.pipe->ReceiveNext(milliseconds(0), &timedOut));
    if (timedOut) {
        return false;
    }
    // What cannot be read is logged by the pipe.
    OnAnswer const onAnswer = std::move(found->second.onAnswer);
    End(found);
    if (answer == nullptr) {
        Report(onAnswer);
    } else if (onAnswer) {
        AMessageContext* const context = m_provider.GetContext();
        onAnswer([&](google::protobuf::MessageLite& reply) {
            return context->DecodeMessage(answer.get(), reply);
        });
    }
    return false;
}

void DeviceCommands::DropLate(TimePoint now) {
    std::vector<OnAnswer> late;
    for (auto exchange = m_exchanges.begin(); exchange != m_exchanges.end();) {
        if (exchange->second.deadline > now) {
            ++exchange;
            continue;
        }
        LOG_V("No answer to %s", exchange->second.what.c_str());
        late.push_back(std::move(exchange->second.onAnswer));
        exchange = End(exchange);
    }
    for (OnAnswer const& onAnswer : late) {
        Report(onAnswer);
    }
}

DeviceCommands::Exchanges::iterator DeviceCommands::End(Exchanges::iterator exchange) {
    m_poll.Unwatch(DescriptorOf(*exchange->second.pipe));
    return m_exchanges.erase(exchange);
}

}  // namespace vq::server
