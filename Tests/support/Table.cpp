#include "TestSupport/Table.h"

#include <cctype>
#include <fstream>
#include <map>
#include <stdexcept>

namespace vq::test {

namespace {

std::string Unescaped(std::string const& cell) {
    static std::map<char, char> const kMeanings = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'s', ' '}};
    std::string text;
    for (std::size_t i = 0; i < cell.size(); ++i) {
        if (cell[i] != '\\') {
            text += cell[i];
        } else if (cell.at(++i) == 'x') {
            text += static_cast<char>(std::stoi(cell.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            auto const meaning = kMeanings.find(cell[i]);
            text += meaning != kMeanings.end() ? meaning->second : cell[i];
        }
    }
    return text;
}

std::string Trimmed(std::string const& text) {
    std::size_t const begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

}  // namespace

std::vector<std::vector<std::string>> ReadTable(std::string const& path, std::string const& section) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::vector<std::vector<std::string>> rows;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line.size() > 2 && line.front() == '[' && line.back() == ']' && std::isalpha(line[1]) != 0) {
            inside = line == "[" + section + "]";
        } else if (inside && !line.empty() && !line.starts_with("# ")) {
            std::vector<std::string>& cells = rows.emplace_back();
            for (std::size_t begin = 0; begin <= line.size();) {
                std::size_t const end = std::min(line.find(" |", begin), line.size());
                cells.push_back(Unescaped(Trimmed(line.substr(begin, end - begin))));
                begin = end + 2;
            }
        }
    }
    return rows;
}

}  // namespace vq::test
