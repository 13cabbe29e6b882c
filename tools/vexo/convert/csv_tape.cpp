#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>
#include <limits>
#include <optional>
#include <span>

#include "tools/vexo/convert/convert.h"
#include "tools/vexo/csv.h"

namespace tool {
namespace {

// ---- To CSV ------------------------------------------------------------------------------------

Failure cannot_write(const std::string& path) {
    return {Exit::failed, "file", path + " cannot be written: " + std::strerror(errno),
            "name a file where there is room and a right to write"};
}

// ---- From CSV ----------------------------------------------------------------------------------

using Cells = std::vector<std::string>;

// The cells of a line; those in quotes without them.
Cells cells_of(const std::string& line) {
    Cells cells(1);
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char letter = line[i];
        if (letter == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
            cells.back() += letter;
            ++i;
        } else if (letter == '"') {
            quoted = !quoted;
        } else if (letter == ',' && !quoted) {
            cells.emplace_back();
        } else if (letter != '\r' || i + 1 < line.size()) {
            cells.back() += letter;
        }
    }
    return cells;
}

template <typename T>
bool is(const std::string& cell, T& value) {
    const char* end = cell.data() + cell.size();
    const auto [behind, error] = std::from_chars(cell.data(), end, value);
    return error == std::errc() && behind == end;
}

// Decimal seconds, to the nanosecond.
bool time_of(const std::string& cell, uint64_t& time) {
    const size_t point = std::min(cell.find('.'), cell.size());
    std::string fraction = point < cell.size() ? cell.substr(point + 1, 9) : "";
    fraction.resize(9, '0');
    uint64_t seconds = 0;
    uint64_t nanoseconds = 0;
    if (!is(cell.substr(0, point), seconds) || !is(fraction, nanoseconds) ||
        seconds > std::numeric_limits<uint64_t>::max() / 2'000'000'000) {
        return false;
    }
    time = seconds * 1'000'000'000 + nanoseconds;
    return true;
}

// What all cells of a column are.
struct Column {
    bool whole = true;     // i64, or u64 where they need it
    bool positive = true;  // u64
    bool number = true;
    int64_t least = 0;
    int64_t most = 0;

    void look(const std::string& cell) {
        int64_t integer = 0;
        uint64_t natural = 0;
        double real = 0;
        const bool is_signed = is(cell, integer);
        const bool is_unsigned = is(cell, natural);
        whole = whole && is_signed;
        least = std::min(least, integer);
        most = std::max(most, integer);
        positive = positive && is_unsigned;
        number = number && (cell.empty() || is_signed || is_unsigned || is(cell, real));
    }
    uint32_t type() const {
        return whole      ? VEXO_TYPE_I64
               : positive ? VEXO_TYPE_U64
               : number   ? VEXO_TYPE_F64
                          : VEXO_TYPE_TEXT;
    }
};

// A table with a time in the first column. Lines with another number of cells than the header were
// cut; they are passed over.
class Table {
public:
    explicit Table(const std::string& path) : file_(path) {
        std::string line;
        if (!std::getline(file_, line) || (names_ = cells_of(line)).size() < 2 ||
            names_.front() != "time") {
            throw Failure(Exit::failed, "file", path + " is no table whose first column is `time`",
                          "name a file that vexo has written as CSV, or one like it");
        }
        begin_ = file_.tellg();
    }
    void rewind() {
        file_.clear();
        file_.seekg(begin_);
        skipped_ = 0;
    }
    bool next(uint64_t& time, Cells& cells) {
        for (std::string line; std::getline(file_, line);) {
            cells = cells_of(line);
            if (cells.size() == names_.size() && time_of(cells.front(), time)) {
                return true;
            }
            ++skipped_;
        }
        return false;
    }
    const Cells& names() const { return names_; }
    // The columns of values: all but the time, and the constant one at the end.
    size_t end() const { return names_.size() - (names_.back() == "end" ? 1 : 0); }
    uint64_t skipped() const { return skipped_; }

private:
    std::ifstream file_;
    Cells names_;
    std::streampos begin_;
    uint64_t skipped_ = 0;
};

// How many columns from `first` on have the names of one array's elements, and are numbers.
size_t elements_at(const Table& table, const std::vector<Column>& columns, size_t first) {
    const std::string& name = table.names()[first];
    if (name.size() < 4 || name.compare(name.size() - 3, 3, "[0]") != 0) {
        return 1;
    }
    const std::string base = name.substr(0, name.size() - 2);
    size_t count = 0;
    while (first + count < table.end() && columns[first + count].number &&
           table.names()[first + count] == base + std::to_string(count) + ']') {
        ++count;
    }
    return count;
}

// The type of an array of these columns; nothing when there is none.
std::optional<uint32_t> array_type(std::span<const Column> columns) {
    Column all;
    bool whole = true;
    for (const Column& column : columns) {
        whole = whole && column.whole;
        all.least = std::min(all.least, column.least);
        all.most = std::max(all.most, column.most);
    }
    if (columns.size() == 3 && !whole) {
        return VEXO_TYPE_3F64;
    }
    if (columns.size() != 6) {
        return std::nullopt;
    }
    if (!whole) {
        return VEXO_TYPE_6F64;
    }
    if (all.least >= std::numeric_limits<int32_t>::min() &&
        all.most <= std::numeric_limits<int32_t>::max()) {
        return VEXO_TYPE_6I32;
    }
    const bool natural = all.least >= 0 && all.most <= std::numeric_limits<uint32_t>::max();
    return natural ? std::optional<uint32_t>(VEXO_TYPE_6U32) : std::nullopt;
}

mcap::Recipe recipe_of(const Table& table, const std::vector<Column>& columns) {
    mcap::Recipe recipe;
    for (size_t column = 1; column < table.end();) {
        const size_t count = elements_at(table, columns, column);
        const std::string& name = table.names()[column];
        if (const auto type = array_type(std::span(columns).subspan(column, count))) {
            recipe.add(name.substr(0, name.size() - 3), *type);
            column += count;
        } else {
            recipe.add(name, columns[column++].type());
        }
    }
    return recipe;
}

template <typename T>
void put_as(const std::string& cell, T number, uint8_t* value) {
    is(cell, number);
    std::memcpy(value, &number, sizeof number);
}

void put(uint32_t element, const std::string& cell, uint8_t* value) {
    switch (element) {
        case VEXO_TYPE_TEXT:
            std::memcpy(value, cell.data(), std::min<size_t>(cell.size(), 255));
            break;
        case VEXO_TYPE_I32:
            return put_as(cell, int32_t{0}, value);
        case VEXO_TYPE_U32:
            return put_as(cell, uint32_t{0}, value);
        case VEXO_TYPE_I64:
            return put_as(cell, int64_t{0}, value);
        case VEXO_TYPE_U64:
            return put_as(cell, uint64_t{0}, value);
        default:
            return put_as(cell, std::numeric_limits<double>::quiet_NaN(), value);
    }
}

void put_line(const mcap::Recipe& recipe, const Cells& cells, mcap::Bytes& values) {
    values.assign(recipe.bytes(), 0);
    size_t column = 1;
    for (const mcap::Field& field : recipe.fields()) {
        for (uint32_t i = 0; i < field.shape.elements; ++i) {
            put(field.shape.element, cells[column++],
                values.data() + field.offset + size_t{i} * field.shape.size);
        }
    }
}

}  // namespace

Converted tape_to_csv(Tape& tape, const std::string& topic, const std::string& path) {
    const uint16_t channel = tape.channel(topic);
    const mcap::Recipe& recipe = tape.recipes.at(channel);
    CsvTable table(variables_of(recipe));
    std::ofstream file(path);
    file << table.header() << '\n';
    mcap::Bytes values(recipe.bytes());
    Converted converted;
    const mcap::Found found = tape.reader.read([&](const mcap::Message& message) {
        if (message.channel != channel) {
            return;
        }
        if (!recipe.decode(message.data, values.data())) {
            ++converted.skipped;
            return;
        }
        file << table.line(decimal_seconds(static_cast<int64_t>(message.log_time)), values.data())
             << '\n';
        ++converted.packages;
    });
    if (!file.flush()) {
        throw cannot_write(path);
    }
    converted.skipped += found.damaged;
    return converted;
}

Converted csv_to_tape(const std::string& csv, const std::string& path) {
    Table table(csv);
    std::vector<Column> columns(table.names().size());
    Cells cells;
    uint64_t time = 0;
    while (table.next(time, cells)) {
        for (size_t column = 1; column < table.end(); ++column) {
            columns[column].look(cells[column]);
        }
    }
    const mcap::Recipe recipe = recipe_of(table, columns);
    TapeWriter writer(path, {{mcap::channel_of(recipe, "/csv")}, {}, {}});
    Converted converted;
    mcap::Bytes values;
    mcap::Bytes cdr;
    for (table.rewind(); table.next(time, cells); ++converted.packages) {
        put_line(recipe, cells, values);
        recipe.encode(values.data(), cdr);
        writer.add({1, static_cast<uint32_t>(converted.packages + 1), time, time, cdr});
    }
    writer.close();
    converted.skipped = table.skipped();
    return converted;
}

}  // namespace tool
