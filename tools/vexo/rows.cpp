#include "tools/vexo/rows.h"

#include "tools/vexo/times.h"

namespace tool {

Json document_of(const std::vector<VexoSessionVariable>& fields, const Row& row) {
    Json values = Json::object();
    for (const VexoSessionVariable& field : fields) {
        values[field.name] = json_of(field, row.package);
    }
    return {{"time", rfc3339(row.package->arrival_realtime_ns)},
            {"age_us", static_cast<double>(row.age_ns) / 1e3},
            {"number", row.package->number},
            {"lost", row.lost},
            {"values", values}};
}

}  // namespace tool
