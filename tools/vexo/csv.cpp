#include "tools/vexo/csv.h"

#include <cstdio>
#include <cstdlib>

#include "tools/vexo/values.h"

namespace tool {
namespace {

bool is_whole(const VexoSessionVariable& field) {
    return field.element != VEXO_TYPE_CHAR && field.element != VEXO_TYPE_BOOL &&
           field.element != VEXO_TYPE_F32 && field.element != VEXO_TYPE_F64;
}

// About 2014 to 2033 in seconds, milliseconds, microseconds or nanoseconds.
bool resembles_epoch(const std::string& cell) {
    const double value = std::strtod(cell.c_str(), nullptr);
    for (const double unit : {1.0, 1e3, 1e6, 1e9}) {
        if (value >= 1.4e9 * unit && value <= 2e9 * unit) {
            return true;
        }
    }
    return false;
}

std::string quoted(const std::string& text) {
    if (text.find_first_of(",\"\n\r") == std::string::npos) {
        return text;
    }
    std::string result = "\"";
    for (const char each : text) {
        result += each == '"' ? std::string("\"\"") : std::string(1, each);
    }
    return result + '"';
}

std::string cell_of(const VexoSessionVariable& field, const std::string& element) {
    if (field.element == VEXO_TYPE_BOOL) {
        return element == "true" ? "1" : "0";
    }
    const bool begins_with_nan = element.size() >= 3 && (element[0] | ' ') == 'n' &&
                                 (element[1] | ' ') == 'a' && (element[2] | ' ') == 'n';
    const bool nan = begins_with_nan || element.rfind("-nan", 0) == 0;
    if (field.element == VEXO_TYPE_CHAR) {
        return begins_with_nan ? ' ' + quoted(element) : quoted(element);
    }
    return nan ? "" : element;
}

}  // namespace

std::string decimal_seconds(int64_t nanoseconds) {
    constexpr int64_t kSecond = 1'000'000'000;
    char text[40];
    std::snprintf(text, sizeof text, "%s%lld.%09lld", nanoseconds < 0 ? "-" : "",
                  std::llabs(nanoseconds / kSecond), std::llabs(nanoseconds % kSecond));
    return text;
}

CsvTable::CsvTable(std::vector<VexoSessionVariable> fields) : fields_(std::move(fields)) {}

std::string CsvTable::header() const {
    std::string line = "time";
    for (const VexoSessionVariable& field : fields_) {
        const bool array = field.elements > 1 && field.element != VEXO_TYPE_CHAR;
        for (uint32_t i = 0; i < (array ? field.elements : 1); ++i) {
            const std::string place = array ? '[' + std::to_string(i) + ']' : "";
            line += ',' + quoted(field.name + place);
        }
    }
    return line + ",end";
}

std::string CsvTable::line(const std::string& time, const void* record) {
    std::string line = time;
    size_t column = 0;
    for (const VexoSessionVariable& field : fields_) {
        for (const std::string& element : elements_of(field, record)) {
            if (column == as_real_.size()) {
                as_real_.push_back(is_whole(field) && resembles_epoch(element));
            }
            line += ',' + cell_of(field, element) + (as_real_[column] ? ".0" : "");
            ++column;
        }
    }
    return line + ",1";
}

}  // namespace tool
