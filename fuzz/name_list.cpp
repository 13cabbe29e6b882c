// Lists of names, as applications hand them in.
#include <cstring>
#include <string>
#include <vector>

#include "client/name_index.h"
#include "client/vexo.h"
#include "fuzz/controller.h"
#include "log/utilities.h"

using namespace fuzz;

namespace {

// A catalogue of one-letter and two-letter names.
bool build_catalogue() {
    vexo::Dataspace& d = dataspace();
    for (int i = 0; i < 26; ++i) {
        const char letter = static_cast<char>('a' + i);
        d.outputs[i].name[0] = letter;
        d.inputs[i].name[0] = d.inputs[i].name[1] = letter;
        d.methods[i].name[0] = letter;
    }
    return build_output_hash(handle(), 26, d.outputs) == 0 &&
           build_input_hash(handle(), 26, d.inputs) == 0 &&
           build_method_hash(handle(), 26, d.methods) == 0;
}

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> names(1);
    for (const char c : list) {
        if (c == ',') {
            names.emplace_back();
        } else {
            names.back() += c;
        }
    }
    return names;
}

int row_of(const std::string& name, size_t letters) {
    const bool known = name.size() == letters && name[0] >= 'a' && name[0] <= 'z' &&
                       name.find_first_not_of(name[0]) == std::string::npos;
    return known ? name[0] - 'a' : -1;
}

int expected_row(const std::string& name, uint32_t kind) {
    switch (kind) {
        case VEXO_FIND_INPUT:
            return row_of(name, 2);
        case VEXO_FIND_METHOD:
            return row_of(name, 1);
        default:
            break;
    }
    const int input = row_of(name, 2);
    return input < 0 ? row_of(name, 1) : input | static_cast<int>(VEXO_INPUT_ROW_MARKER);
}

int expected_check(const std::string& list) {
    if (list.empty()) {
        return 1;
    }
    const size_t blank = list.find(' ');
    const size_t comma = (',' + list).find(",,");  // that ends an empty element
    if (blank != std::string::npos || comma != std::string::npos) {
        return blank < comma ? 2 : 3;
    }
    return list.back() == ',' ? 3 : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool built = build_catalogue();
    check(built, "the catalogue is indexed");
    Input input(data, size);
    const uint32_t kind = input.u8() % 4u;
    const Span rest = input.rest();
    const std::string list(reinterpret_cast<const char*>(rest.data()),
                           strnlen(reinterpret_cast<const char*>(rest.data()), rest.size()));

    const std::vector<std::string> names = split(list.substr(0, VEXO_NAME_LIST_MAX));
    std::vector<int32_t> rows(names.size(), -7);
    rows.shrink_to_fit();
    check(
        multi_find(handle(), list.c_str(), kind, rows.data()) == static_cast<int32_t>(names.size()),
        "there is a result for each name");
    for (size_t i = 0; i < names.size(); ++i) {
        check(rows[i] == (kind > VEXO_FIND_METHOD ? -7 : expected_row(names[i], kind)),
              "a name leads to its row");
    }
    check(
        check_string(reinterpret_cast<const unsigned char*>(list.c_str())) == expected_check(list),
        "the check of a list finds its first fault");
    return 0;
}
