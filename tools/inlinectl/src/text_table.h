// Aligned columns for a person.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "text_columns.h"

namespace inlinectl {

// Columns as wide as their widest cell. Numbers stand right, the rest left.
class TextTable {
public:
    enum class Align { left, right };

    explicit TextTable(std::vector<Align> columns) : columns_(std::move(columns)) {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    void write(std::ostream &out) const
    {
        std::vector<size_t> widths(columns_.size());
        for (const auto &row : rows_) {
            for (size_t i = 0; i < row.size(); ++i)
                widths[i] = std::max(widths[i], row[i].size());
        }
        for (const auto &row : rows_) {
            std::string line;
            for (size_t i = 0; i < row.size(); ++i)
                line +=
                    (i == 0 ? "" : "  ") + (columns_[i] == Align::right ? right(row[i], widths[i])
                                                                        : left(row[i], widths[i]));
            line.erase(line.find_last_not_of(' ') + 1);
            out << line << "\n";
        }
    }

private:
    std::vector<Align> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace inlinectl
