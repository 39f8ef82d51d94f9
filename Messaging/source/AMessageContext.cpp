#include "Messaging/AMessageContext.h"

#include <utility>

#include "Logging/Log.h"
#include "Messaging/AMessagePipeProvider.h"

AMessageContext::AMessageContext(MessageAddress address) : m_address(std::move(address)) {}

AMessageContext::~AMessageContext() = default;

void AMessageContext::SetPipeProvider(std::unique_ptr<AMessagePipeProvider> provider) {
    m_pipeProvider = std::move(provider);
    VQ_CHECK(m_pipeProvider != nullptr);
}
