#include "DumpText.h"

#include <cmath>
#include <cstdint>

namespace {

constexpr int kDigits = 6;

// What has fewer or more digits before the point is printed with an exponent.
constexpr double kLeast = 1e-4;
constexpr double kLimit = 1e6;

/// Ten to the power of the index.
constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

/// The place of the first digit, counted from the point: 5 for 123456, 0 for 1.5, -4 for 0.0001.
int ExponentOf(double magnitude) {
    if (magnitude >= 1) {
        int exponent = 0;
        while (magnitude >= kPowers[exponent + 1]) {
            ++exponent;
        }
        return exponent;
    }
    return magnitude >= 1e-1 ? -1 : magnitude >= 1e-2 ? -2 : magnitude >= 1e-3 ? -3 : -4;
}

/// The nearest whole number, of two equally near the even one.
std::uint32_t RoundToEven(double number) {
    auto const whole = static_cast<std::uint32_t>(number);
    double const rest = number - whole;
    return whole + (rest > 0.5 || (rest == 0.5 && whole % 2 == 1) ? 1 : 0);
}

/// Six digits with the point behind the first `exponent` + 1 of them, without zeros at the end.
char* WriteFixed(char* out, std::uint32_t number, int exponent) {
    char digits[kDigits];
    for (int place = kDigits - 1; place >= 0; --place, number /= 10) {
        digits[place] = static_cast<char>('0' + number % 10);
    }
    int used = kDigits;
    while (used > 1 && digits[used - 1] == '0') {
        --used;
    }
    int place = 0;
    if (exponent < 0) {
        *out++ = '0';
        *out++ = '.';
        for (int zeros = -exponent - 1; zeros > 0; --zeros) {
            *out++ = '0';
        }
    } else {
        for (; place <= exponent; ++place) {
            *out++ = place < used ? digits[place] : '0';
        }
        if (place < used) {
            *out++ = '.';
        }
    }
    for (; place < used; ++place) {
        *out++ = digits[place];
    }
    return out;
}

}  // namespace

DumpText& DumpText::operator<<(float number) {
    char text[32];
    char* end = text;
    double const magnitude = std::fabs(static_cast<double>(number));
    if (magnitude >= kLeast && magnitude < kLimit) {
        if (number < 0) {
            *end++ = '-';
        }
        // The product is exact, ties included: 24 bits of the float and at most 21 of the power of ten.
        int exponent = ExponentOf(magnitude);
        std::uint32_t digits = RoundToEven(magnitude * kPowers[kDigits - 1 - exponent]);
        if (digits == 1'000'000) {
            digits = 100'000;
            ++exponent;
        }
        if (exponent < kDigits) {
            end = WriteFixed(end, digits, exponent);
            m_out.append(text, end);
            return *this;
        }
        end = text;
    }
    // Zero, numbers with an exponent, infinity and what is no number.
    end = std::to_chars(text, text + sizeof text, number, std::chars_format::general, kDigits).ptr;
    m_out.append(text, end);
    return *this;
}
