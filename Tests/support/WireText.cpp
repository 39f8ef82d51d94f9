#include "TestSupport/WireText.h"

#include <sstream>
#include <stdexcept>

#include "TestSupport/WireWriter.h"

namespace wire {

namespace {

/// What stands before the closing mark; the opening one has been read.
std::string UpTo(std::istream& in, char open, char close) {
    std::string inner;
    int depth = 1;
    for (char c = 0; in.get(c);) {
        depth += (c == open && open != close) - (c == close);
        if (depth == 0) {
            return inner;
        }
        inner += c;
    }
    throw std::runtime_error(std::string("no ") + close + " behind " + inner);
}

std::string Scalar(std::uint32_t field, std::string const& word) {
    if (word.ends_with('f')) {
        return field == 0 ? FloatBytes(std::stof(word)) : Float(field, std::stof(word));
    }
    std::int64_t const number = std::stoll(word);
    return field == 0 ? Varint(static_cast<std::uint64_t>(number)) : Number(field, number);
}

std::string Value(std::uint32_t field, std::istream& in) {
    char const first = static_cast<char>(in.peek());
    if (first == '\'') {
        in.get();
        return Text(field, UpTo(in, '\'', '\''));
    }
    if (first == '{') {
        in.get();
        return Text(field, Bytes(UpTo(in, '{', '}')));
    }
    if (first == '[') {
        in.get();
        std::istringstream run(UpTo(in, '[', ']'));
        std::string bytes;
        for (std::string word; run >> word;) {
            bytes += Scalar(0, word);
        }
        return Text(field, bytes);
    }
    std::string word;
    in >> word;
    return Scalar(field, word);
}

std::string Raw(std::istream& in) {
    std::istringstream words(UpTo(in, '<', '>'));
    std::string bytes;
    for (std::string word; words >> word;) {
        bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}

}  // namespace

std::vector<Piece> Pieces(std::string const& text) {
    std::istringstream in(text);
    std::vector<Piece> pieces;
    while (in >> std::ws && in.peek() != std::istringstream::traits_type::eof()) {
        Piece& piece = pieces.emplace_back();
        piece.required = in.peek() != '?';
        if (!piece.required) {
            in.get();
        }
        if (in.peek() == '<') {
            in.get();
            piece.bytes = Raw(in);
            continue;
        }
        std::uint32_t field = 0;
        char colon = 0;
        in >> field >> colon;
        if (colon != ':') {
            throw std::runtime_error("no field in " + text);
        }
        piece.bytes = Value(field, in);
    }
    return pieces;
}

std::string Bytes(std::string const& text) {
    std::string bytes;
    for (Piece const& piece : Pieces(text)) {
        bytes += piece.bytes;
    }
    return bytes;
}

}  // namespace wire
