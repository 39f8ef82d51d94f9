#pragma once

#include <string>
#include <vector>

/// Messages as text, for tables: fields as "NUMBER:VALUE" with blanks between them. A value is an integer
/// (-7), a float (1.5f), a text ('a b'), a message ({1:7 2:'x'}) or a packed run ([1 2] or [1f 2f]). Raw
/// bytes stand as <ff 00> in the place of a field.
namespace wire {

/// A field, or raw bytes. One that is marked by a question mark ("?2:7") is optional.
struct Piece {
    std::string bytes;
    bool required = true;
};

/// Throws std::exception where the text is no message.
std::vector<Piece> Pieces(std::string const& text);
/// All pieces together.
std::string Bytes(std::string const& text);
/// As one of the generated classes, complete or not.
template <class Message>
Message Parsed(std::string const& text) {
    Message message;
    message.ParsePartialFromString(Bytes(text));
    return message;
}

}  // namespace wire
