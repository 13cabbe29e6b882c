// What a controller publishes, and where the values of a recipe lie.
#ifndef TOOLS_CAPTURE_NAMES_H
#define TOOLS_CAPTURE_NAMES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace capture {

struct Variable {
    std::string name;
    uint32_t id = 0;
    uint8_t type = 0;  // a type code
};

struct Method {
    std::string name;
    uint16_t id = 0;
};

struct Catalogue {
    std::vector<Variable> outputs;
    std::vector<Variable> inputs;
    std::vector<Method> methods;

    // Recipes name outputs, and inputs to have them echoed. Null: none of them.
    const Variable* find(uint32_t id) const;
    const Variable* find(const std::string& name) const;
};

struct Field {
    std::string name;
    uint8_t type = 0;
    size_t offset = 0;  // in the values of a package
    size_t bytes = 0;
    uint32_t elements = 0;
};

// With the sizes of its type; none for one that is not known.
Field make_field(const std::string& name, uint8_t type, size_t offset);

// The values of a recipe. Never changed once it is made.
class Layout {
public:
    // By the ids of a set-up, or by names. Nothing when one of them is not in the catalogue, or its
    // type is not known.
    static std::shared_ptr<const Layout> make(const Catalogue& catalogue,
                                              const std::vector<uint32_t>& ids);
    static std::shared_ptr<const Layout> make(const Catalogue& catalogue,
                                              const std::vector<std::string>& names);

    const std::vector<Field>& fields() const { return fields_; }
    size_t bytes() const { return bytes_; }
    // The first of this name; null: none.
    const Field* find(const std::string& name) const;

private:
    bool add(const Variable* variable);
    template <typename Key>
    static std::shared_ptr<const Layout> make_of(const Catalogue& catalogue,
                                                 const std::vector<Key>& keys);

    std::vector<Field> fields_;
    size_t bytes_ = 0;
};

}  // namespace capture

#endif
