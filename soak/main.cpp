// A long run of everything cyclic at once: ten handles at 1 kHz on both paths, a reader for each,
// and set-points beside them. scripts/soak prepares the link and runs it.
//
// Usage: vexo_soak SECONDS CLIENT_INTERFACE PEER_INTERFACE
// The report goes to standard error, since the library prints to standard output.
#include <cstdlib>
#include <exception>
#include <numeric>

#include "client/vexo.h"
#include "soak/report.h"
#include "soak/session.h"

namespace {

using namespace soak;

constexpr char kLateFile[] = "late-cycles.csv";
constexpr auto kSettling = std::chrono::seconds(5);  // all rings are in use by then

bool soak_for(double seconds, const char* client_interface, const char* peer_interface) {
    Peer peer(peer_interface);
    log_init();
    Session session(peer, client_interface);
    Run run;
    run.seconds = seconds + std::chrono::duration<double>(kSettling).count();
    for (size_t i = 0; i < kHandles; ++i) {
        run.readers.push_back(std::make_unique<Reader>(i, session.handles()[i], peer.record()));
    }
    session.begin_set_points();
    std::this_thread::sleep_for(kSettling);
    run.at_start = Holdings::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    run.at_end = Holdings::now();
    for (const auto& reader : run.readers) {
        reader->stop();
    }
    run.overruns = session.overruns();
    run.set_points = session.set_points();
    run.refused = session.refused();
    session.end_set_points();
    for (const uint32_t handle : session.handles()) {
        vexo_output_pause(handle, 0);
    }
    peer.stop();
    run.dropped_by_peer =
        std::accumulate(peer.record().dropped.begin(), peer.record().dropped.end(), uint64_t{0});
    return report(run, kLateFile);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s SECONDS CLIENT_INTERFACE PEER_INTERFACE\n", argv[0]);
        return 2;
    }
    try {
        const bool good = soak_for(std::atof(argv[1]), argv[2], argv[3]);
        log_cleanup();
        return good ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "soak: %s\n", failure.what());
        return 1;
    }
}
