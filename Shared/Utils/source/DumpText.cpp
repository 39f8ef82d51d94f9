#include "DumpText.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

constexpr int kDigits = 6;

// What has fewer or more digits before the point is printed with an exponent.
constexpr int kLeastExponent = -4;
constexpr double kPowers[] = {1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

constexpr double PowerOfTen(int exponent) {
    return kPowers[exponent - kLeastExponent];
}

// Floats above zero are in the order of their bits.
constexpr std::uint32_t kSignBit = 0x80000000;
constexpr int kFractionBits = 23;
constexpr std::uint32_t BitsOf(float number) {
    return std::bit_cast<std::uint32_t>(number);
}

/// The bits of the smallest float that is not below a power of ten.
constexpr std::uint32_t BitsOfPower(int exponent) {
    auto const nearest = static_cast<float>(PowerOfTen(exponent));
    return BitsOf(nearest) + (static_cast<double>(nearest) < PowerOfTen(exponent) ? 1 : 0);
}

constexpr std::uint32_t kLeast = BitsOfPower(kLeastExponent);
constexpr std::uint32_t kLimit = BitsOfPower(kDigits);
constexpr std::uint32_t kLeastBinade = kLeast >> kFractionBits;

/// Where the numbers between two powers of two lie between powers of ten.
struct Binade {
    std::int32_t exponent;    // of the first digit of its smallest number, counted from the point: 0 for 1.5
    std::uint32_t nextPower;  // the bits from which on it is one more
};
constexpr std::array<Binade, (kLimit >> kFractionBits) - kLeastBinade + 1> kBinades = [] {
    std::array<Binade, (kLimit >> kFractionBits) - kLeastBinade + 1> binades{};
    int exponent = kLeastExponent;
    for (std::uint32_t i = 0; i < binades.size(); ++i) {
        std::uint32_t const smallest = std::max((kLeastBinade + i) << kFractionBits, kLeast);
        while (exponent + 1 < kDigits && BitsOfPower(exponent + 1) <= smallest) {
            ++exponent;
        }
        binades[i] = {exponent, BitsOfPower(exponent + 1)};
    }
    return binades;
}();

// Digits travel in a register, the first one in its lowest byte, and reach memory in one store.
static_assert(std::endian::native == std::endian::little);

/// The three digits of each number below 1000.
constexpr std::array<std::uint32_t, 1000> kTriples = [] {
    std::array<std::uint32_t, 1000> triples{};
    for (std::uint32_t number = 0; number < triples.size(); ++number) {
        triples[number] = ('0' + number / 100) | ('0' + number / 10 % 10) << 8 | ('0' + number % 10) << 16;
    }
    return triples;
}();

/// How a number is laid out, by the place of its first digit.
struct Layout {
    std::uint8_t zeros;  // characters before the first digit: "0." and zeros
    std::uint8_t
        wholeBits;  // of the digits before the point; of all digits when the point is among the zeros
    std::uint8_t length[kDigits + 1];  // of the text, by the number of digits up to the last that is not 0
};
constexpr std::array<Layout, kDigits - kLeastExponent> kLayouts = [] {
    std::array<Layout, kDigits - kLeastExponent> layouts{};
    for (int exponent = kLeastExponent; exponent < kDigits; ++exponent) {
        Layout& layout = layouts[static_cast<std::size_t>(exponent - kLeastExponent)];
        int const zeros = exponent < 0 ? 1 - exponent : 0;
        int const whole = exponent < 0 ? kDigits : exponent + 1;
        layout.zeros = static_cast<std::uint8_t>(zeros);
        layout.wholeBits = static_cast<std::uint8_t>(8 * whole);
        for (int used = 1; used <= kDigits; ++used) {
            int const length = exponent < 0 ? zeros + used : std::max(whole, used + (used > whole ? 1 : 0));
            layout.length[used] = static_cast<std::uint8_t>(length);
        }
    }
    return layouts;
}();

/// A number of six digits with the point behind the first `exponent` + 1 of them, without zeros at the end.
/// Free of branches, which numbers of mixed sizes would make mispredict.
/// @param exponent  -4 to 5
/// @param out       writes up to 16 characters, of which those before the result count.
char* PutFixed(char* out, std::uint32_t number, int exponent) {
    Layout const& layout = kLayouts[static_cast<std::size_t>(exponent - kLeastExponent)];
    std::uint32_t const upper = number / 1000;
    std::uint64_t const digits = kTriples[upper] | std::uint64_t{kTriples[number - 1000 * upper]} << 24;
    constexpr std::uint64_t zeros = 0x303030303030;
    int const used = (71 - std::countl_zero((digits ^ zeros) | 1)) >> 3;
    std::uint64_t const fraction = digits >> layout.wholeBits;
    std::uint64_t const whole = digits ^ fraction << layout.wholeBits;
    std::uint64_t const pointed = (fraction << 8 | '.') << layout.wholeBits | whole;
    constexpr char kPattern[] = {'0', '.', '0', '0', '0', '0', '0', '0'};
    std::memcpy(out, kPattern, sizeof kPattern);
    std::memcpy(out + layout.zeros, &pointed, sizeof pointed);
    return out + layout.length[used];
}

}  // namespace

char* DumpText::Put(char* out, float number) {
    std::uint32_t const bits = BitsOf(number) & ~kSignBit;
    if (bits - kLeast < kLimit - kLeast) {
        Binade const& binade = kBinades[(bits >> kFractionBits) - kLeastBinade];
        int exponent = binade.exponent + (bits >= binade.nextPower ? 1 : 0);
        // The product is exact, ties included: 24 bits of the float and at most 21 of the power of ten. The
        // sum has no places behind the point; its lowest bits are the nearest whole number, of two equally
        // near the even one.
        constexpr double wholes = 4503599627370496.0;
        double const magnitude = std::bit_cast<float>(bits);
        double const sum = magnitude * PowerOfTen(kDigits - 1 - exponent) + wholes;
        auto digits = static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(sum));
        if (digits == 1'000'000) {
            digits = 100'000;
            ++exponent;
        }
        if (exponent < kDigits) {
            *out = '-';
            return PutFixed(out + (BitsOf(number) >> 31), digits, exponent);
        }
    }
    if (bits == 0) {
        *out = '-';
        return Put(out + (BitsOf(number) >> 31), '0');
    }
    // Numbers with an exponent, infinity and what is no number.
    return std::to_chars(out, out + kLongestNumber, number, std::chars_format::general, kDigits).ptr;
}
