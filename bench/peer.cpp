#include "bench/peer.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <deque>
#include <mutex>
#include <thread>

#include "bench/machine.h"

namespace bench {

namespace {

// ---- The catalogue

Bytes page(char letter, uint32_t first) {
    const uint32_t rows = letter == 'R' ? kOutputRows : letter == 'r' ? kInputRows : kMethodRows;
    const uint32_t count = first < rows ? std::min(kPageRows, rows - first) : 0;
    Bytes payload(4);  // the status
    append(payload, static_cast<uint8_t>(count));
    for (uint32_t row = first; row < first + count; ++row) {
        const std::string name = letter == 'R'   ? output_name(row)
                                 : letter == 'r' ? "input_variable_" + std::to_string(row)
                                                 : "control_method_" + std::to_string(row);
        append(payload, static_cast<uint8_t>(name.size()));
        payload.insert(payload.end(), name.begin(), name.end());
        if (letter == 'M') {
            append(payload, static_cast<uint16_t>(row + 1));
            continue;
        }
        append(payload, row + 1);
        // Rows 1 to 3 fill up what 48-byte rows leave of the largest package.
        constexpr uint8_t kFilling[] = {13, 12, 14, 5};
        append(payload, letter == 'R' && row < 4 ? kFilling[row] : uint8_t{13});
    }
    return message(letter, payload);
}

// Every page, made before the first request comes.
struct Pages {
    std::vector<Bytes> of[3];

    Pages() {
        for (int list = 0; list < 3; ++list) {
            for (uint32_t first = 0; first < kMethodRows; first += kPageRows) {
                of[list].push_back(page("RrM"[list], first));
            }
        }
    }
    const Bytes& at(char letter, uint32_t first) const {
        return of[letter == 'R' ? 0 : letter == 'r' ? 1 : 2].at(first / kPageRows);
    }
};

// ---- The controller

class Controller {
public:
    explicit Controller(const Peer& peer)
        : options_(peer.options),
          peer_(peer),
          package_(output_package(std::max(options_.package_size, kUsualPackage))) {}

    void serve(int ready) {
        for (const int port : {kIoPort, kControlPort, kReceivePort}) {
            std::thread(&Controller::accept_all, this, listen_on(port), port).detach();
        }
        if (options_.raw) {
            link_ = open_link("robot" + std::to_string(options_.number));
            std::thread(&Controller::answer_frames, this).detach();
        }
        require(write(ready, "r", 1) == 1, "nobody waits for the controller");
        stream();
    }

private:
    int listen_on(int port) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        inet_pton(AF_INET, peer_.address().c_str(), &address.sin_addr);
        require(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                    listen(fd, 20) == 0,
                "cannot serve " + peer_.address());
        return fd;
    }

    void accept_all(int listener, int port) {
        for (;;) {
            const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            if (port == kReceivePort) {
                const std::lock_guard lock(stream_mutex_);
                receivers_.push_back(fd);
            } else {
                std::thread(&Controller::answer_messages, this, fd).detach();
            }
        }
    }

    void answer_messages(int fd) {
        uint8_t buffer[65536];
        size_t filled = 0;
        for (;;) {
            const ssize_t got = recv(fd, buffer + filled, sizeof buffer - filled, 0);
            if (got <= 0) {
                close(fd);
                return;
            }
            filled += static_cast<size_t>(got);
            size_t start = 0;
            while (filled - start >= 3) {
                const auto length = load<uint16_t>(buffer + start);
                if (length > filled - start) {
                    break;
                }
                answer(fd, buffer + start);
                start += length;
            }
            filled -= start;
            std::memmove(buffer, buffer + start, filled);
        }
    }

    void answer(int fd, const uint8_t* request) {
        const char letter = static_cast<char>(request[2]);
        switch (letter) {
            case 'U':
                return;
            case 'R':
            case 'r':
            case 'M':
                return reply(fd, pages_.at(letter, load<uint32_t>(request + 3)));
            case 'S':
            case 'P':
                switch_stream(letter == 'S');
                break;
            case 'V':
                return reply(fd, version_reply());
            default:
                break;
        }
        static const Bytes accepted = message('m', Bytes{0, 0, 0, 0, 1});
        Bytes answer = accepted;
        answer[2] = request[2];
        reply(fd, answer);
    }

    Bytes version_reply() const {
        Bytes payload(4);
        const Mac mac = peer_.mac();
        payload.insert(payload.end(), mac.begin(), mac.end());
        return message('V', payload);
    }

    static void reply(int fd, const Bytes& bytes) {
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    void answer_frames() {
        Bytes reply =
            frame(peer_.host_mac(), peer_.mac(), kServoCode, message('m', Bytes{0, 0, 0, 0}));
        uint8_t received[2048];
        for (;;) {
            const ssize_t got = recv(link_, received, sizeof received, 0);
            if (got > static_cast<ssize_t>(kFrameCode) && received[kFrameCode] == kServoCode &&
                options_.acknowledges) {
                send_frame(reply);
            }
        }
    }

    // With the next sequence number.
    void send_frame(Bytes& bytes) {
        store(&bytes[kFrameSequence], sequence_.fetch_add(1));
        seal(bytes);
        send(link_, bytes.data(), bytes.size(), 0);
    }

    // A tick that is under way is waited for: nothing comes after the reply to a pause.
    void switch_stream(bool on) {
        {
            const std::lock_guard lock(stream_mutex_);
            streaming_ = on && options_.package_size > 0;
        }
        streaming_.notify_one();
    }

    void stream() {
        for (;;) {
            streaming_.wait(false);
            timespec tick{};
            clock_gettime(CLOCK_MONOTONIC, &tick);
            while (streaming_) {
                tick.tv_nsec += 1'000'000;
                if (tick.tv_nsec >= 1'000'000'000) {
                    tick.tv_nsec -= 1'000'000'000;
                    ++tick.tv_sec;
                }
                clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &tick, nullptr);
                const std::lock_guard lock(stream_mutex_);
                if (streaming_) {
                    send_package();
                }
            }
        }
    }

    void send_package() {
        store(&package_[kPackageCounter], ++counter_);
        store(&package_[kPackageTime], static_cast<uint64_t>(now_ns()));
        if (options_.raw) {
            Bytes bytes = frame(peer_.host_mac(), peer_.mac(), kOutputCode, package_);
            send_frame(bytes);
            return;
        }
        std::erase_if(receivers_, [this](int fd) {
            const bool gone =
                send(fd, package_.data(), package_.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 &&
                errno != EAGAIN;
            return gone && close(fd) == 0;
        });
    }

    const PeerOptions options_;
    const Peer& peer_;
    const Pages pages_;
    int link_ = -1;
    std::mutex stream_mutex_;
    std::vector<int> receivers_;
    std::atomic<bool> streaming_ = false;
    Bytes package_;
    uint64_t counter_ = 0;
    std::atomic<uint16_t> sequence_ = 1;  // of frames
};

void make_link(const Peer& peer) {
    const auto text = [](const Mac& mac) {
        char words[18];
        std::snprintf(words, sizeof words, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                      mac[3], mac[4], mac[5]);
        return std::string(words);
    };
    const std::string robot = "robot" + std::to_string(peer.options.number);
    const std::string host = peer.host_interface();
    run_ip("link add name " + host + " address " + text(peer.host_mac()) + " type veth peer name " +
           robot + " address " + text(peer.mac()));
    run_ip("link set " + robot + " up");
    run_ip("link set " + host + " up");
    usleep(200'000);  // until the transmit queues are open
}

Mac station(int side, int number) {
    return {0x02, 0, 0, 0, static_cast<uint8_t>(side), static_cast<uint8_t>(number)};
}

}  // namespace

std::vector<uint32_t> rows_of_package(size_t size) {
    std::vector<uint32_t> rows;
    if (size == kLargestPackage) {
        rows = {1, 2, 3};
        size -= 24 + 12 + 8;
    }
    for (uint32_t row = 4; size >= 48; ++row, size -= 48) {
        rows.push_back(row);
    }
    return rows;
}

std::string output_name(uint32_t row) {
    return "output_variable_" + std::to_string(row);
}

int next_peer_number() {
    static int number = 0;
    return ++number;
}

int open_link(const std::string& interface) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(kEtherType));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(kEtherType);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    require(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0,
            "cannot open " + interface);
    return fd;
}

const Peer& start_peer(const PeerOptions& options) {
    static std::deque<Peer> peers;
    const Peer& peer = peers.emplace_back(Peer{options});
    if (options.raw) {
        make_link(peer);
    }
    int ends[2];
    require(pipe(ends) == 0, "no pipe");
    const pid_t process = fork();
    require(process >= 0, "no process");
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pin(Place::controller);
        Controller(peer).serve(ends[1]);
        _exit(0);
    }
    close(ends[1]);
    char ready = 0;
    require(read(ends[0], &ready, 1) == 1, "the controller does not start");
    close(ends[0]);
    return peer;
}

std::string Peer::address() const {
    return "127.77." + std::to_string(options.number) + ".1";
}

std::string Peer::host_interface() const {
    return "host" + std::to_string(options.number);
}

Mac Peer::host_mac() const {
    return station(1, options.number);
}

Mac Peer::mac() const {
    return station(2, options.number);
}

}  // namespace bench
