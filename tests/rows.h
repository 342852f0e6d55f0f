// Tables of "input|input=>answer" rows, for rules that are best told by many short examples.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// The inputs of a row, which '|' divides.
struct Fields : std::vector<std::string> {
    explicit Fields(const std::string &inputs) : std::vector<std::string>(1)
    {
        for (const char c : inputs)
            c == '|' ? static_cast<void>(emplace_back()) : back().push_back(c);
    }

    const char *text(size_t index) const { return at(index).c_str(); }
    template <typename T> T number(size_t index) const
    {
        return static_cast<T>(std::stoi(at(index)));
    }
};

// Expects the function to give each row's answer for its inputs.
template <typename Answer>
void expect_rows(const std::initializer_list<std::string> &rows, Answer answer)
{
    for (const std::string &row : rows) {
        const size_t arrow = row.find("=>");
        EXPECT_EQ(answer(Fields(row.substr(0, arrow))), row.substr(arrow + 2)) << row;
    }
}
