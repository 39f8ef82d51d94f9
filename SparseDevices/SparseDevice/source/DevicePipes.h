#pragma once

#include <string>

class AMessageContext;
class AMessagePipeRequestReply;

/// The client pipe to a device at a known address, owned by the context's pipe provider; null (logged) when
/// it cannot be made.
/// @param address  text form.
/// @param node     distinguishes several clients of one device; may be empty.
AMessagePipeRequestReply* OpenPipeToDevice(AMessageContext* context, std::string const& device,
                                           std::string const& address, std::string const& node);

/// Asks the server for a device's address. False (logged) when it does not know the device.
/// @param node  sent along unless null.
bool RequestDeviceAddress(AMessagePipeRequestReply* serverPipe, std::string const& device,
                          std::string const* node, std::string& address);
