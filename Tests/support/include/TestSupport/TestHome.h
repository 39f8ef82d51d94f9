#pragma once

#include <string>

namespace vq::test {

/// The private HOME of this test process, with a slash at the end. It is short (an IPC endpoint path has
/// 107 bytes), set before the first test runs, and removed when the process ends. Children inherit it.
std::string const& HomeDirectory();

}  // namespace vq::test
