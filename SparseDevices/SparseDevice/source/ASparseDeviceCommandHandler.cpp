#include "SparseDevice/ASparseDeviceCommandHandler.h"

#include <utility>

#include "Messaging/MessageUtils.h"
#include "ServerRequests.pb.h"

void ASparseDeviceCommandHandler::SetDevice(SparseDevice* device) {
    m_device = device;
}

void ASparseDeviceCommandHandler::OnShimShutdown() {}

bool ASparseDeviceCommandHandler::ProcessCommand(AMessage* message) {
    auto const handler = m_handlers.find(message->Type());
    if (handler == m_handlers.end()) {
        return MessageUtils::SendErrorAndLog<vq::vds::Error>(
            m_requestPipe, "Received command [ " + message->Type() + " ] with no associated handler.");
    }
    return handler->second(message);
}

bool ASparseDeviceCommandHandler::SendNotImplemented(std::string const& command) {
    return MessageUtils::SendError<vq::vds::Error>(m_requestPipe,
                                                   "Command [ " + command + " ] is not implemented.");
}

void ASparseDeviceCommandHandler::AddCommand(std::unordered_map<std::string, int>& commandMap,
                                             std::string const& type, Handler handler) {
    commandMap[type] = m_key;
    m_handlers[type] = std::move(handler);
}
