// The facts as a document.
#ifndef TOOLS_VEXO_DOCTOR_FACTS_JSON_H
#define TOOLS_VEXO_DOCTOR_FACTS_JSON_H

#include <nlohmann/json.hpp>

#include "tools/vexo/doctor/facts.h"

namespace doctor {

// What --save writes and --from reads. Throws tool::Failure when it is not such a document.
nlohmann::json to_document(const Facts& facts);
Facts from_document(const nlohmann::json& document);

}  // namespace doctor

#endif
