// How the packages of one controller are to be read, as far as its dialogue with its client, or the
// user, has told.
#ifndef TOOLS_CAPTURE_RECIPES_H
#define TOOLS_CAPTURE_RECIPES_H

#include <array>

#include "tools/capture/names.h"

namespace capture {

// What the user knows of streams whose set-up is not captured.
struct Known {
    Catalogue catalogue;
    std::vector<std::string> recipe;  // names of its variables
};

class Recipes {
public:
    explicit Recipes(const Known& known) : known_(known) { publish({}); }

    // The layout of the packages with this number; null: not known.
    const std::shared_ptr<const Layout>& layout(uint8_t recipe) const {
        return ids_[recipe].empty() ? untold_ : layouts_[recipe];
    }

    // A new session: numbers of recipes are given anew.
    void forget();
    // The controller has given this number to the variables with these ids.
    void set_up(uint8_t recipe, std::vector<uint32_t> ids);

    // What the controller publishes, as far as it was seen; the rest is what the user knows.
    const Catalogue& catalogue() const { return catalogue_; }
    void publish(const Catalogue& seen);

private:
    void make_layouts();

    const Known& known_;
    Catalogue catalogue_;
    std::array<std::vector<uint32_t>, 256> ids_;
    std::array<std::shared_ptr<const Layout>, 256> layouts_;
    std::shared_ptr<const Layout> untold_;  // where the set-up was not seen
};

}  // namespace capture

#endif
