#include "DumpText.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr int kDigits = 6;

// What has fewer or more digits before the point is printed with an exponent.
constexpr double kLeast = 1e-4;
constexpr double kLimit = 1e6;

/// Powers of ten from kLeast on.
constexpr int kFirstPower = -4;
constexpr double kPowers[] = {1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

double PowerOfTen(int exponent) {
    return kPowers[exponent - kFirstPower];
}

/// The place of the first digit, counted from the point: 5 for 123456, 0 for 1.5, -4 for 0.0001.
int ExponentOf(double magnitude) {
    int const binary = static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - 1023;
    // 1233 / 4096 is the logarithm of two, close enough that the result is right or one too low.
    int const exponent = std::max(binary * 1233 >> 12, kFirstPower);
    return exponent + (magnitude >= PowerOfTen(exponent + 1) ? 1 : 0);
}

/// The nearest whole number, of two equally near the even one. For numbers from 0 to 2^32.
std::uint32_t RoundToEven(double number) {
    // Beyond this, doubles have no places behind the point.
    constexpr double wholes = 4503599627370496.0;
    return static_cast<std::uint32_t>((number + wholes) - wholes);
}

// Digits travel in a register, the first one in its lowest byte, and reach memory in one store.
static_assert(std::endian::native == std::endian::little);

/// The two digits of each number below 100.
constexpr std::array<std::uint16_t, 100> kPairs = [] {
    std::array<std::uint16_t, 100> pairs{};
    for (unsigned number = 0; number < pairs.size(); ++number) {
        pairs[number] = static_cast<std::uint16_t>(('0' + number / 10) | ('0' + number % 10) << 8);
    }
    return pairs;
}();

void Store(char* out, std::uint64_t characters) {
    std::memcpy(out, &characters, sizeof characters);
}

/// Six digits with the point behind the first `exponent` + 1 of them, without zeros at the end. Free of
/// branches, which numbers of mixed sizes would make mispredict.
/// @param exponent  -4 to 5
/// @param out       writes up to 16 characters, of which those before the result count.
char* WriteFixed(char* out, std::uint32_t number, int exponent) {
    constexpr std::uint64_t zeros = 0x303030303030;
    std::uint64_t const digits = kPairs[number / 10000] | std::uint64_t{kPairs[number / 100 % 100]} << 16 |
                                 std::uint64_t{kPairs[number % 100]} << 32;
    int const used = 8 - (std::countl_zero(digits ^ zeros) >> 3);
    int const below = exponent >> 31;  // all bits for a number below one, else none
    // Below one "0." and zeros stand in front, else the point stands behind the whole digits.
    std::memcpy(out, "0.000000", 8);
    out += below & (1 - exponent);
    int const whole = ~below & (exponent + 1);
    auto const wholeBits = static_cast<unsigned>(8 * whole);
    std::uint64_t const fraction = digits >> wholeBits;
    std::uint64_t const pointed = (fraction << 8 | '.') << wholeBits | (digits ^ fraction << wholeBits);
    Store(out, below != 0 ? digits : pointed);
    return out + (below != 0 ? used : std::max(whole, used + (used > whole ? 1 : 0)));
}

}  // namespace

DumpText& DumpText::operator<<(float number) {
    MakeRoomForNumber();
    double const magnitude = std::fabs(static_cast<double>(number));
    if (magnitude >= kLeast && magnitude < kLimit) {
        // The product is exact, ties included: 24 bits of the float and at most 21 of the power of ten.
        int exponent = ExponentOf(magnitude);
        std::uint32_t digits = RoundToEven(magnitude * PowerOfTen(kDigits - 1 - exponent));
        if (digits == 1'000'000) {
            digits = 100'000;
            ++exponent;
        }
        if (exponent < kDigits) {
            *m_end = '-';
            m_end = WriteFixed(m_end + (number < 0 ? 1 : 0), digits, exponent);
            return *this;
        }
    }
    // Zero, numbers with an exponent, infinity and what is no number.
    m_end = std::to_chars(m_end, m_end + kLongestNumber, number, std::chars_format::general, kDigits).ptr;
    return *this;
}
