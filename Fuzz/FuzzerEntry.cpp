// Where the fuzzer comes in.

#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    TryInput({reinterpret_cast<char const*>(data), size});
    return 0;
}
