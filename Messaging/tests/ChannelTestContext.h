#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/AMessagePipeProvider.h"

/// An event sender and a listener that are linked inside the process.
class ChannelTest : public testing::Test {
protected:
    ChannelTest() {
        m_context = AMessageManager::Instance().GetContext(
            AMessageManager::Instance().GetDefaultProcessLoopbackAddress());
        AMessagePipeProvider& pipes = *m_context->GetPipeProvider();
        MessageAddress const address{"channels", MessageAddress::Transport::LOOPBACK, "events"};
        m_sender = pipes.GetEventSender(address, "sender", SocketRole::Bind);
        m_listener = pipes.GetEventListener(address, "listener", SocketRole::Connect);
    }
    ~ChannelTest() override { AMessageManager::Instance().Cleanup(); }

    /// The next event, or null when none comes.
    std::unique_ptr<AChannelMessage> Receive(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        return std::unique_ptr<AChannelMessage>(
            dynamic_cast<AChannelMessage*>(m_listener->ReceiveNext(timeout, nullptr)));
    }
    /// A subscription inside the process takes effect when the sender next looks at its socket, so it counts
    /// only for what is sent after this.
    template <class Send>
    std::unique_ptr<AChannelMessage> SendUntilReceived(Send const& send) {
        for (int attempt = 0; attempt < 2000; ++attempt) {
            send();
            if (auto message = Receive(std::chrono::milliseconds(10))) {
                while (Receive(std::chrono::milliseconds(0))) {
                }
                return message;
            }
        }
        return nullptr;
    }

    AMessageContext* m_context;
    AMessagePipeEventSender* m_sender;
    AMessagePipeEventListener* m_listener;
};
