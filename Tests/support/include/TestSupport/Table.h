#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace vq::test {

/// The rows of one section of a table of cases. In the file a section begins with a line "[name]", each line
/// is a row, " | " divides its cells, and lines that begin with "# " are comments. In a cell \n, \r, \t, \s
/// (a blank at its edge), \\ and \xNN mean what they look like; surrounding blanks don't count.
std::vector<std::vector<std::string>> ReadTable(std::string const& path, std::string const& section);

/// A cell for "none".
inline constexpr char kNone[] = "~";

/// The section as rows of N cells each; FILE.table lies beside the test.
template <std::size_t N>
std::vector<std::array<std::string, N>> Rows(std::string const& file, std::string const& section) {
    std::vector<std::array<std::string, N>> rows;
    for (auto const& cells : ReadTable(std::string(VQ_TEST_FOLDER) + file + ".table", section)) {
        EXPECT_EQ(cells.size(), N) << file << ": " << testing::PrintToString(cells);
        std::size_t column = 0;
        for (std::string& cell : rows.emplace_back()) {
            cell = column < cells.size() ? cells[column++] : "";
        }
    }
    EXPECT_FALSE(rows.empty()) << "no section " << section << " in " << file;
    return rows;
}

}  // namespace vq::test

using vq::test::kNone;
using vq::test::Rows;
