#include "bench/side.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/machine.h"
#include "tools/plot/percentile_plot.h"

namespace bench {

namespace {

constexpr int kWarmUpRounds = 1;

void send_all(int fd, const void* data, size_t size) {
    const char* position = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = write(fd, position, size);
        require(sent > 0, "cannot hand a round over");
        position += sent;
        size -= static_cast<size_t>(sent);
    }
}

void receive_all(int fd, void* data, size_t size) {
    require(size == 0 || recv(fd, data, size, MSG_WAITALL) == static_cast<ssize_t>(size),
            "a side has ended");
}

[[noreturn]] void serve_rounds(int fd, const Prepare& prepare) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    const Measure measure = prepare();
    char go = 0;
    while (read(fd, &go, 1) == 1) {
        const Round round = measure();
        const uint64_t head[] = {round.missed, round.values.size()};
        send_all(fd, head, sizeof head);
        send_all(fd, round.values.data(), round.values.size() * sizeof(double));
    }
    _exit(0);
}

// Lets everything else run a little. A side that spins at a real-time priority would be stopped by
// the system in the midst of a round otherwise.
void give_way(int64_t after_ns) {
    usleep(static_cast<useconds_t>(after_ns / 10'000));
}

class Side {
public:
    explicit Side(const Prepare& prepare) {
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "no socket pair");
        process_ = fork();
        require(process_ >= 0, "no process");
        if (process_ == 0) {
            close(ends[0]);
            serve_rounds(ends[1], prepare);
        }
        close(ends[1]);
        fd_ = ends[0];
    }
    ~Side() {
        close(fd_);
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

    Round measure() {
        const int64_t begin = now_ns();
        send_all(fd_, "g", 1);
        uint64_t head[2];
        receive_all(fd_, head, sizeof head);
        Round round{std::vector<double>(head[1]), head[0]};
        receive_all(fd_, round.values.data(), round.values.size() * sizeof(double));
        give_way(now_ns() - begin);
        return round;
    }

private:
    int fd_ = -1;
    pid_t process_ = -1;
};

std::vector<double> all_values(const std::vector<Round>& rounds) {
    std::vector<double> values;
    for (const Round& round : rounds) {
        values.insert(values.end(), round.values.begin(), round.values.end());
    }
    return values;
}

}  // namespace

void run(const Pair& pair) {
    Side library(pair.library);
    Side limit(pair.limit);
    for (int i = 0; i < kWarmUpRounds; ++i) {
        library.measure();
        limit.measure();
    }
    Rounds rounds;
    for (int i = 0; i < pair.rounds; ++i) {
        rounds.library.push_back(library.measure());
        rounds.limit.push_back(limit.measure());
    }
    for (const Figure& figure : pair.figures) {
        add_result(pair.what, pair.unit, figure, rounds);
    }
    if (!pair.picture.empty()) {
        require(plot::plot_percentiles(
                    output_path(pair.picture), pair.what, pair.unit,
                    {{"library", all_values(rounds.library)}, {"limit", all_values(rounds.limit)}}),
                "cannot write a picture");
    }
}

void run_all(const std::vector<Pair>& pairs, const std::string& only) {
    for (const Pair& pair : pairs) {
        if (pair.what.find(only) != std::string::npos) {
            run(pair);
        }
    }
}

}  // namespace bench
