#include "tools/capture/recipes.h"

#include <utility>

namespace capture {

void Recipes::forget() {
    ids_ = {};
    layouts_ = {};
    untold_ = nullptr;
    make_layouts();
}

void Recipes::set_up(uint8_t recipe, std::vector<uint32_t> ids) {
    ids_[recipe] = std::move(ids);
    layouts_[recipe] = Layout::make(catalogue_, ids_[recipe]);
}

void Recipes::publish(const Catalogue& seen) {
    catalogue_ = {seen.outputs.empty() ? known_.catalogue.outputs : seen.outputs,
                  seen.inputs.empty() ? known_.catalogue.inputs : seen.inputs,
                  seen.methods.empty() ? known_.catalogue.methods : seen.methods};
    make_layouts();
}

// Those that could not be made before.
void Recipes::make_layouts() {
    for (size_t i = 0; i < ids_.size(); ++i) {
        if (!ids_[i].empty() && layouts_[i] == nullptr) {
            layouts_[i] = Layout::make(catalogue_, ids_[i]);
        }
    }
    if (untold_ == nullptr) {
        untold_ = Layout::make(catalogue_, known_.recipe);
    }
}

}  // namespace capture
