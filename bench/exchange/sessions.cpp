// Sessions: arrivals, set-points, the way back after a cut, and what a package costs among many.
#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <thread>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/peer.h"
#include "session/session.h"

namespace bench {

namespace {

constexpr int64_t kSoon = 10'000'000;  // microseconds
constexpr size_t kPackagesPerRound = 200;
constexpr size_t kSkipped = 10;
constexpr int kSetPointsPerRound = 2000;
constexpr int64_t kSetPointPeriod = 50'000;
constexpr int kCutsPerRound = 5;
constexpr useconds_t kLoadMicroseconds = 400'000;
constexpr size_t kValues = kUsualPackage - 4;  // of a package, behind its header

template <typename Structure>
Structure sized() {
    Structure structure{};
    structure.size = sizeof structure;
    return structure;
}

void succeed(int32_t result, const char* what) {
    if (result != VEXO_SESSION_OK) {
        auto error = sized<VexoSessionError>();
        vexo_session_error(&error);
        require(false, std::string(what) + ": " + error.cause);
    }
}

// The I/O thread runs as the process does, beside the controller: the other processor is the
// application's.
void place_io_thread() {
    auto options = sized<VexoSessionThreadOptions>();
    options.policy = sched_getscheduler(0);
    sched_param parameter{};
    sched_getparam(0, &parameter);
    options.priority = parameter.sched_priority;
    options.processor = 1 + processor_of(Place::controller);
    succeed(vexo_session_io_thread(&options), "the I/O thread");
}

struct Record {
    VexoSessionPackage package;
    uint8_t values[kValues];
};
static_assert(sizeof(Record) == sizeof(VexoSessionPackage) + kValues);

// A session with one cursor on its stream.
class Streaming {
public:
    explicit Streaming(const Peer& peer) {
        auto options = sized<VexoSessionOptions>();
        const std::string interface = peer.host_interface();
        options.interface = peer.options.raw ? interface.c_str() : nullptr;
        options.servo_method = "control_method_0";
        succeed(vexo_session_open(peer.address().c_str(), &options, &session), "no session");
    }
    void open_stream() {
        std::vector<std::string> names;
        std::vector<const char*> texts;
        for (const uint32_t row : rows_of_package(kUsualPackage)) {
            names.push_back(output_name(row));
        }
        for (const std::string& name : names) {
            texts.push_back(name.c_str());
        }
        succeed(vexo_session_stream_open(session, texts.data(), static_cast<uint32_t>(texts.size()),
                                         nullptr, kSoon, &stream),
                "no stream");
        succeed(vexo_session_cursor_open(stream, nullptr, &cursor), "no cursor");
    }
    void close_stream() { succeed(vexo_session_stream_close(stream, kSoon), "no pause"); }

    bool read(Record& record) {
        uint32_t count = 0;
        succeed(vexo_session_cursor_read(cursor, &record, 1, &count, nullptr), "not read");
        return count > 0;
    }
    // Waits for a package of this connection, or of a later one.
    uint32_t wait_for(uint32_t connection) {
        Record record{};
        do {
            succeed(vexo_session_cursor_wait(cursor, kSoon), "no package");
            read(record);
        } while (record.package.connection < connection);
        return record.package.connection;
    }

    VexoSession* session = nullptr;
    VexoSessionStream* stream = nullptr;
    VexoSessionCursor* cursor = nullptr;
};

PeerOptions streaming(int number, bool raw) {
    return {.number = number, .raw = raw, .package_size = kUsualPackage};
}

// ---- Arrivals -----------------------------------------------------------------------------------

// Takes packages by `read` (its values, or null while there is none) until a round is complete.
template <typename Read>
Round watch(Read read) {
    Round round;
    uint64_t last = 0;
    for (size_t seen = 0; seen < kSkipped + kPackagesPerRound;) {
        const uint8_t* values = read();
        const auto counter = values != nullptr ? load<uint64_t>(values + kPackageCounter - 4) : 0;
        if (values == nullptr || counter == last) {
            continue;
        }
        if (++seen > kSkipped) {
            const int64_t sent = load<int64_t>(values + kPackageTime - 4);
            round.values.push_back(static_cast<double>(now_ns() - sent) / 1000);
            round.missed += counter - last - 1;
        }
        last = counter;
    }
    return round;
}

Prepare session_arrivals(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        place_io_thread();
        auto robot = std::make_shared<Streaming>(start_peer(streaming(number, raw)));
        return [=] {
            robot->open_stream();
            Record record{};
            const Round round =
                watch([&] { return robot->read(record) ? record.values : nullptr; });
            robot->close_stream();
            return round;
        };
    };
}

// Waits with epoll, as who serves several must, and copies once.
void receive_bare(int fd, size_t header, BareStore& store) {
    pin(Place::controller);
    const int set = epoll_create1(0);
    epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
    epoll_ctl(set, EPOLL_CTL_ADD, fd, &event);
    uint8_t received[2048];
    for (;;) {
        epoll_wait(set, &event, 1, -1);
        const ssize_t got = recv(fd, received, header + kUsualPackage, MSG_DONTWAIT);
        if (got == static_cast<ssize_t>(header + kUsualPackage)) {
            store.put(received + header, kUsualPackage);
        }
    }
}

Prepare bare_arrivals(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer(streaming(number, raw));
        const int fd =
            raw ? open_link(peer.host_interface()) : connect_bare(peer.address(), kReceivePort);
        const int io = connect_bare(peer.address(), kIoPort);
        auto store = std::make_shared<BareStore>();
        std::thread([=] { receive_bare(fd, raw ? kFrameHeader : 0, *store); }).detach();
        return [=] {
            ask(io, message('S', {}));
            uint8_t package[kUsualPackage];
            const Round round = watch([&] {
                store->get(package, sizeof package);
                return package + 4;
            });
            ask(io, message('P', {}));
            return round;
        };
    };
}

// ---- Set-points ---------------------------------------------------------------------------------

Prepare session_servo(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        place_io_thread();
        auto robot = std::make_shared<Streaming>(start_peer({.number = number, .raw = raw}));
        succeed(vexo_session_wait(robot->session, VEXO_SESSION_STATE_READY, kSoon), "not ready");
        return [=] {
            static const double joints[6] = {0, 0.1, 0.2, 0.3, 0.4, 0.5};
            auto point = sized<VexoSessionSetPoint>();
            point.count = 6;
            point.value = 0.002;
            point.joints = joints;
            return time_calls(kSetPointsPerRound, kSetPointPeriod, [&] {
                succeed(vexo_session_servo(robot->session, &point, kSoon), "set-point");
            });
        };
    };
}

// A ready-made message there, and its acknowledgement back, which a limit means waiting for.
Prepare bare_servo(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({.number = number, .raw = raw});
        const int fd =
            raw ? open_link(peer.host_interface()) : connect_bare(peer.address(), kControlPort);
        const Bytes bytes =
            raw ? frame(peer.mac(), peer.host_mac(), kServoCode, set_point(2)) : set_point(2);
        return [=] {
            uint8_t reply[2048];
            return time_calls(kSetPointsPerRound, kSetPointPeriod, [&] {
                send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
                pollfd polled{fd, POLLIN, 0};
                poll(&polled, 1, -1);
                recv(fd, reply, sizeof reply, MSG_DONTWAIT);
            });
        };
    };
}

// ---- Back after a cut ---------------------------------------------------------------------------

// Each cut after the session has stood for a while: attempts follow one another in 50 ms at least.
template <typename Cut>
Round time_cuts(Cut cut) {
    Round round;
    for (int i = 0; i < kCutsPerRound; ++i) {
        usleep(60'000);
        const Round one = time_calls(1, 0, cut);
        round.values.push_back(one.values.front());
    }
    return round;
}

// The process's own connection to a port.
int connection_to(uint16_t port) {
    for (int fd = 3; fd < 1024; ++fd) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sin_family == AF_INET && ntohs(peer.sin_port) == port) {
            return fd;
        }
    }
    return -1;
}

Prepare session_back() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        place_io_thread();
        auto robot = std::make_shared<Streaming>(start_peer(streaming(number, false)));
        robot->open_stream();
        return [=] {
            uint32_t connection = robot->wait_for(0);
            return time_cuts([&] {
                shutdown(connection_to(kIoPort), SHUT_RDWR);
                connection = robot->wait_for(connection + 1);
            });
        };
    };
}

Bytes page_request(char letter, uint32_t first) {
    Bytes payload;
    append(payload, first);
    return message(letter, payload);
}

// Reads the reply to its end.
void ask_whole(int fd, const Bytes& request) {
    static uint8_t reply[65536];
    require(send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0, "not asked");
    for (size_t got = 0; got < 2 || got < load<uint16_t>(reply);) {
        const ssize_t more = recv(fd, reply + got, sizeof reply - got, 0);
        require(more > 0, "no reply");
        got += static_cast<size_t>(more);
    }
}

// The same connections and requests, up to the first package.
void come_back_bare(const std::string& address) {
    const int io = connect_bare(address, kIoPort);
    const int control = connect_bare(address, kControlPort);
    const int stream = connect_bare(address, kReceivePort);
    ask_whole(io, message('V', Bytes(14)));
    ask_whole(io, message('v', {}));
    for (const auto& [letter, rows] :
         {std::pair{'R', kOutputRows}, {'r', kInputRows}, {'M', kMethodRows}}) {
        for (uint32_t first = 0; first < rows; first += kPageRows) {
            ask_whole(io, page_request(letter, first));
        }
    }
    ask_whole(io, message('O', Bytes(8)));
    ask_whole(io, message('S', {}));
    uint8_t package[kUsualPackage];
    require(recv(stream, package, sizeof package, MSG_WAITALL) > 0, "no package");
    for (const int fd : {io, control, stream}) {
        close(fd);
    }
}

Prepare bare_back() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer(streaming(number, false));
        return [=, &peer] { return time_cuts([&] { come_back_bare(peer.address()); }); };
    };
}

// ---- What a package costs -----------------------------------------------------------------------

// Processor time of the I/O thread.
int64_t io_thread_time_ns() {
    static const pid_t thread = [] {
        DIR* tasks = opendir("/proc/self/task");
        pid_t found = 0;
        while (const dirent* entry = tasks != nullptr ? readdir(tasks) : nullptr) {
            std::string name;
            std::ifstream(std::string("/proc/self/task/") + entry->d_name + "/comm") >> name;
            found = name == "vexo-session" ? std::atoi(entry->d_name) : found;
        }
        closedir(tasks);
        return found;
    }();
    timespec used{};
    clock_gettime(~static_cast<clockid_t>(thread) << 3 | 6, &used);
    return int64_t{used.tv_sec} * 1'000'000'000 + used.tv_nsec;
}

uint64_t packages_of(const std::vector<Streaming>& robots) {
    uint64_t packages = 0;
    for (const Streaming& robot : robots) {
        auto now = sized<VexoSessionStatistics>();
        succeed(vexo_session_statistics(robot.session, &now), "no statistics");
        packages += now.packages;
    }
    return packages;
}

Prepare session_cost(int sessions) {
    return [sessions, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        place_io_thread();
        const Peer& peer = start_peer(streaming(number, false));
        auto robots = std::make_shared<std::vector<Streaming>>();
        for (int i = 0; i < sessions; ++i) {
            robots->emplace_back(peer).open_stream();
        }
        return [=] {
            const int64_t used = io_thread_time_ns();
            const uint64_t before = packages_of(*robots);
            usleep(kLoadMicroseconds);
            const auto packages = static_cast<double>(packages_of(*robots) - before);
            require(packages > 0, "nothing streams");
            return Round{{static_cast<double>(io_thread_time_ns() - used) / packages / 1000}, 0};
        };
    };
}

}  // namespace

std::vector<Pair> session_pairs() {
    std::vector<Pair> pairs;
    for (const bool raw : {false, true}) {
        const std::string path = raw ? "raw" : "over TCP";
        const std::string file = raw ? "raw" : "tcp";
        pairs.push_back({"session: package sent to package readable, " + path,
                         "µs",
                         session_arrivals(raw),
                         bare_arrivals(raw),
                         {{"p50", p50, 1.15}},
                         31,
                         "session_arrival_" + file + ".svg"});
        pairs.push_back({"session: acknowledged set-point, " + path,
                         "µs",
                         session_servo(raw),
                         bare_servo(raw),
                         {{"p50", p50, 1.10}},
                         25,
                         "session_servo_" + file + ".svg"});
    }
    pairs.push_back({"session: cut to first package, 33 pages of catalogue",
                     "µs",
                     session_back(),
                     bare_back(),
                     {{"p50", p50, 20'000, Scale::difference}},
                     15});
    for (const int sessions : {10, 100}) {
        pairs.push_back({"session: a package, one of " + std::to_string(sessions) + " beside one",
                         "µs CPU",
                         session_cost(sessions),
                         session_cost(1),
                         {{"CPU time", p50, 1.25}},
                         9});
    }
    return pairs;
}

}  // namespace bench
