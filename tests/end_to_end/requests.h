// The requests of the interface, each with what tells its reply from no reply.
#ifndef TESTS_END_TO_END_REQUESTS_H
#define TESTS_END_TO_END_REQUESTS_H

#include <vector>

#include "tests/end_to_end/application.h"

namespace test {

// What a request hands out: one of these, the rest stays.
union Handed {
    uint8_t bytes[sizeof(VexoVariablePage)];
    uint32_t recipe_id;
    uint64_t bits;
    VexoVariablePage variables;
    VexoMethodPage methods;
    VexoControllerVersion version;
};

struct Request {
    enum Receives { single, page };

    const char* function;
    int32_t (*call)(Application& app, Handed& handed);
    Receives receives = single;
    sim::Port port = sim::Port::io;
    uint8_t streaming = 0;  // the streaming flag once it was accepted
};

// A request of each kind. They suit an application that connect_small() has prepared.
const std::vector<Request>& requests();
void PrintTo(const Request& request, std::ostream* out);

// A controller with a catalogue that is small, and of which nothing moves or is streamed.
sim::Options small_controller();
// Connects, loads the catalogue, and sets an output recipe up.
void connect_small(Application& app);

}  // namespace test

#endif
