// What a recorder costs the session's receive path: processor time of the I/O thread for a package,
// by turns with and without one. Usage: record_cost ADDRESS [TURNS]   (a controller at 1 kHz)
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tools/vexo/record/recorder.h"

namespace {

using tool::checked;
using tool::sized;

// Nanoseconds on a processor.
uint64_t io_thread_ns() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        if (name == "vexo-session") {
            uint64_t time = 0;
            std::ifstream(task.path() / "schedstat") >> time;
            return time;
        }
    }
    return 0;
}

// Of one turn of two seconds.
double cost_ns(VexoSession* session, VexoSessionStream* stream, const mcap::Recipe& recipe,
               bool recorded) {
    std::filesystem::remove("cost.mcap");
    std::optional<tool::Recorder> recorder;
    if (recorded) {
        recorder.emplace(session, stream,
                         tool::Recording{"cost.mcap",
                                         1800,
                                         0,
                                         "",
                                         recipe,
                                         {{mcap::channel_of(recipe, "/cost")}, {}, {}},
                                         {}});
    }
    auto before = sized<VexoSessionStatistics>();
    auto after = before;
    vexo_session_statistics(session, &before);
    const uint64_t begin = io_thread_ns();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const uint64_t end = io_thread_ns();
    vexo_session_statistics(session, &after);
    return static_cast<double>(end - begin) / static_cast<double>(after.packages - before.packages);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "Usage: record_cost ADDRESS [TURNS]\n");
        return 2;
    }
    VexoSession* session = nullptr;
    checked(vexo_session_open(argv[1], nullptr, &session));
    checked(vexo_session_wait(session, VEXO_SESSION_STATE_READY, 10'000'000));
    mcap::Recipe recipe;
    std::vector<std::string> names;
    for (const auto& entry : tool::entries_of(session, VEXO_SESSION_OUTPUT)) {
        recipe.add(entry.name, entry.type);
        names.emplace_back(entry.name);
    }
    std::vector<const char*> pointers;
    for (const std::string& name : names) {
        pointers.push_back(name.c_str());
    }
    VexoSessionStream* stream = nullptr;
    checked(vexo_session_stream_open(session, pointers.data(),
                                     static_cast<uint32_t>(pointers.size()), nullptr, 10'000'000,
                                     &stream));
    std::vector<double> without;
    std::vector<double> with;
    for (int turn = 0; turn < (argc > 2 ? std::stoi(argv[2]) : 10); ++turn) {
        without.push_back(cost_ns(session, stream, recipe, false));
        with.push_back(cost_ns(session, stream, recipe, true));
    }
    std::printf("a package without a recorder %.0f ns, with one %.0f ns: ratio %.3f\n",
                median(without), median(with), median(with) / median(without));
    vexo_session_close(session);
    return 0;
}
