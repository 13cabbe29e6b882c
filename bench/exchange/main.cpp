// Round trips and arrivals. Usage: bench_exchange [WORDS OF A PAIR'S NAME]
#include "bench/exchange/pairs.h"

int main(int argc, char** argv) {
    const std::string only = argc > 1 ? argv[1] : "";
    for (const auto& pairs : {bench::servo_pairs(), bench::input_pairs(), bench::arrival_pairs(),
                              bench::catalogue_pairs(), bench::load_pairs(), bench::session_pairs(),
                              bench::handle_pairs()}) {
        bench::run_all(pairs, only);
    }
}
