#include "tools/vexo/catalogue.h"

#include "tools/vexo/robot.h"

namespace tool {

std::string list_name(uint32_t kind) {
    return std::string(kind_name(kind)) + 's';
}

std::vector<VexoSessionVariable> all_entries(VexoSession* session) {
    std::vector<VexoSessionVariable> all;
    for (const uint32_t kind : kKinds) {
        const std::vector<VexoSessionVariable> entries = entries_of(session, kind);
        all.insert(all.end(), entries.begin(), entries.end());
    }
    return all;
}

Json catalogue_of(const std::vector<VexoSessionVariable>& entries) {
    Json catalogue;
    for (const uint32_t kind : kKinds) {
        catalogue[list_name(kind)] = Json::array();
    }
    for (const VexoSessionVariable& row : entries) {
        Json entry = {{"name", row.name}, {"id", row.id}};
        if (row.kind != VEXO_SESSION_METHOD) {
            entry["type"] = row.type;
        }
        catalogue[list_name(row.kind)].push_back(entry);
    }
    return catalogue;
}

}  // namespace tool
