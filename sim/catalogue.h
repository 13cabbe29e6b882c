// What a simulated controller publishes: the outputs it can stream, the inputs it takes, and the
// methods it accepts.
#ifndef SIM_CATALOGUE_H
#define SIM_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// Type codes of variables. A catalogue may carry other codes, too; their values have no bytes.
enum class Type : uint8_t {
    character = 0,
    boolean = 1,
    u8 = 2,
    u16 = 3,
    u32 = 4,
    u64 = 5,
    i8 = 6,
    i16 = 7,
    i32 = 8,
    i64 = 9,
    f32 = 10,
    f64 = 11,
    vector3 = 12,      // three f64
    vector6 = 13,      // six f64
    vector3_f32 = 14,  // three f32
    vector6_i32 = 15,  // six i32
    vector6_u32 = 16,  // six u32
    vector6_f32 = 17,  // six f32
    text = 18,         // 255 characters, zero-filled
    array = 19,        // in arguments of methods only
};

// Bytes that a value of a type takes; 0 for codes that are no type of a variable.
size_t width(Type type);

struct Variable {
    std::string name;  // at most 255 characters; a client may take fewer
    uint32_t id = 0;
    Type type = Type::f64;
};

struct Method {
    std::string name;
    uint16_t id = 0;
};

// An output whose name and type are those of a built-in output shows the simulated arm; any other
// shows its id, repeated over its width, until it is set. In the same way a method with the name of
// a built-in one does what that does; any other is accepted and does nothing.
struct Catalogue {
    std::vector<Variable> outputs;
    std::vector<Variable> inputs;
    std::vector<Method> methods;

    // The six-axis arm: more than one page of everything for clients of version 1.
    static Catalogue built_in();
    // Throws std::invalid_argument with a text that tells what is wrong with the JSON.
    static Catalogue from_json(const std::string& text);
    std::string to_json() const;
    // Throws std::invalid_argument when a name is longer than 255 characters.
    void check() const;
};

}  // namespace sim

#endif
