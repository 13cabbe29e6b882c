// Values as they lie in packages, and as numbers.
#ifndef SESSION_VALUES_H
#define SESSION_VALUES_H

#include "session/session.h"

namespace vexo::session {

bool is_text(const VexoSessionVariable& field);
bool is_real(const VexoSessionVariable& field);
// One number: of a type that counts or measures.
bool is_number(const VexoSessionVariable& field);

// The element that lies there, of whatever type the field's elements are. A whole number of a real
// one is its integral part.
double real_value(const VexoSessionVariable& field, const uint8_t* element);
int64_t whole_value(const VexoSessionVariable& field, const uint8_t* element);

// Writes an element. False, and nothing is written: the type cannot hold the value exactly (F32: it
// is out of its range).
bool put_real(const VexoSessionVariable& field, uint8_t* element, double value);
bool put_whole(const VexoSessionVariable& field, uint8_t* element, int64_t value);

}  // namespace vexo::session

#endif
