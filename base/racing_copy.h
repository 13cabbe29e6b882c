// Copies of bytes that another thread may be writing or reading at the same moment. What is read
// that way may be a mixture, and is only used where that is harmless or noticed afterwards, by a
// sequence count. They rely on
// - GCC's and Clang's inline assembly: what it does to memory is no data race to the compiler, and
//   with the clobber it stays where it is among the atomic accesses around it;
// - x86-64: loads stay in order with loads, and stores with stores, those of string instructions
//   included. Only among the stores of one string instruction is there no order, and none is
//   needed.
// The build refuses other processors.
#ifndef BASE_RACING_COPY_H
#define BASE_RACING_COPY_H

#include <cstddef>
#include <cstdint>

namespace vexo {

inline void racing_copy(void* to, const void* from, size_t size) {
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
}

// A little-endian number of two bytes: a string instruction takes longer to start than to copy it.
inline uint16_t racing_u16(const void* from) {
    uint16_t value;
    asm volatile("movw (%1), %0" : "=r"(value) : "r"(from) : "memory");
    return value;
}

inline void racing_clear(void* to, size_t size) {
    asm volatile("rep stosb" : "+D"(to), "+c"(size) : "a"(0) : "memory");
}

}  // namespace vexo

#endif
