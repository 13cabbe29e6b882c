// Packages as comma-separated values that plotting programs take.
#ifndef TOOLS_VEXO_CSV_H
#define TOOLS_VEXO_CSV_H

#include <string>
#include <vector>

#include "session/session.h"

namespace tool {

// Nanoseconds as decimal seconds.
std::string decimal_seconds(int64_t nanoseconds);

// The first column is `time`; an array has a column for each element. The last one always holds 1,
// so that readers can tell a line that was cut. Readers that guess take whole numbers of a certain
// size for a time, and cells that begin with "nan" for the end of the numbers: such columns get a
// ".0", such cells are empty.
class CsvTable {
public:
    explicit CsvTable(std::vector<VexoSessionVariable> fields);

    // Without line feeds.
    std::string header() const;
    std::string line(const std::string& time, const void* record);

private:
    std::vector<VexoSessionVariable> fields_;
    std::vector<bool> as_real_;  // for each column, known from the first line on
};

}  // namespace tool

#endif
