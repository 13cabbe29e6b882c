// Changes of a catalogue, as a new release of a controller's software makes them.
#ifndef SIM_CATALOGUE_EDITS_H
#define SIM_CATALOGUE_EDITS_H

#include "sim/catalogue.h"

namespace sim {

// Of the variables and methods of this name. Throw std::invalid_argument when there are none.
void rename(Catalogue& catalogue, const std::string& name, const std::string& other);
void retype(Catalogue& catalogue, const std::string& name, Type type);
void remove(Catalogue& catalogue, const std::string& name);

// The ids of each list go to other rows.
void renumber(Catalogue& catalogue);
// The rows of each list come in another order, ids included.
void reorder(Catalogue& catalogue);
// Each list gets entries more until its length is a multiple of the page size.
void fill_pages(Catalogue& catalogue, size_t page_size);

}  // namespace sim

#endif
