// The method call message: u16 method id, u8 argument count, then each argument as a type code and
// a value.
#ifndef CLIENT_METHOD_CALL_H
#define CLIENT_METHOD_CALL_H

#include <cstdint>

namespace vexo {

constexpr char kMethodCall = 'm';

// Type codes of arguments.
constexpr uint8_t kTypeFlag = 1;     // one byte
constexpr uint8_t kTypeByte = 2;     // one byte
constexpr uint8_t kTypeU32 = 4;      // four bytes
constexpr uint8_t kTypeReal = 11;    // an 8-byte float
constexpr uint8_t kTypeVector = 13;  // six 8-byte floats
constexpr uint8_t kTypeArray = 19;   // u8 1, u8 length, u8 element type, then the elements

}  // namespace vexo

#endif
