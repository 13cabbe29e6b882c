#include "soak/peer.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "sim/simulator.h"

extern "C" ssize_t __real_send(int fd, const void* data, size_t size, int flags);

namespace soak {

namespace {

PeerRecord* sending;  // in the peer's process

// The package that a message or a frame carries, or null.
const uint8_t* package_in(const uint8_t* bytes, size_t size, size_t& length) {
    constexpr size_t kFrameHeader = 26;
    constexpr size_t kFrameCode = 15;
    constexpr uint8_t kOutputFrame = 144;
    if (size > kFrameHeader + Package::kHeader && bytes[kFrameCode] == kOutputFrame &&
        bytes[12] == 0xC8 && bytes[13] == 0x15) {
        bytes += kFrameHeader;
        size -= kFrameHeader;
    }
    if (size < Package::kHeader + sizeof(Package) || bytes[2] != 'U') {
        return nullptr;
    }
    length = static_cast<size_t>(bytes[0] | bytes[1] << 8);
    return length <= size ? bytes : nullptr;
}

void stamp(const uint8_t* package, size_t length) {
    const Package content = Package::read(package);
    if (content.controller < kHandles) {
        Sent& sent = sending->sent[content.controller][content.counter % kRemembered];
        sent.hash.store(hash(package, length), std::memory_order_relaxed);
        sent.at.store(now(), std::memory_order_relaxed);
        sent.counter.store(content.counter, std::memory_order_release);
    }
}

sim::Options options(size_t controller, const std::string& interface) {
    sim::Options options;
    options.address = Peer::address(controller);
    options.history = 0;
    if (controller >= kTcpHandles) {
        options.interface = interface;
        options.mac =
            sim::MacAddress{0x02, 0x76, 0x65, 0x78, 0x6F, static_cast<uint8_t>(controller)};
    }
    return options;
}

void serve(const std::string& interface, int ready, int stop) {
    std::vector<std::unique_ptr<sim::Simulator>> controllers;
    for (size_t i = 0; i < kHandles; ++i) {
        controllers.push_back(std::make_unique<sim::Simulator>(options(i, interface)));
        controllers.back()->set_output("uptime_seconds", {static_cast<uint8_t>(i), 0, 0, 0});
    }
    char byte = 0;
    if (write(ready, &byte, 1) == 1) {
        [[maybe_unused]] const ssize_t ended = read(stop, &byte, 1);
    }
    for (size_t i = 0; i < kHandles; ++i) {
        controllers[i]->stop();
        sending->packages[i] = controllers[i]->counters().packages_sent;
        sending->dropped[i] = controllers[i]->counters().packages_dropped;
    }
}

[[noreturn]] void run(const std::string& interface, int ready, int stop) {
    int status = 0;
    try {
        serve(interface, ready, stop);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "soak: the controllers: %s\n", failure.what());
        status = 1;
    }
    _exit(status);
}

void require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

}  // namespace

Peer::Peer(const std::string& interface) {
    void* memory = mmap(nullptr, sizeof(PeerRecord), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    int ready[2];
    int stop[2];
    require(memory != MAP_FAILED && pipe(ready) == 0 && pipe(stop) == 0,
            "cannot prepare the controllers' process");
    record_ = static_cast<PeerRecord*>(memory);
    process_ = fork();
    require(process_ >= 0, "cannot start the controllers' process");
    if (process_ == 0) {
        close(ready[0]);
        close(stop[1]);
        sending = record_;
        run(interface, ready[1], stop[0]);
    }
    close(ready[1]);
    close(stop[0]);
    stop_ = stop[1];
    char byte = 0;
    const bool started = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    require(started, "the controllers did not start");
}

Peer::~Peer() {
    stop();
}

std::string Peer::address(size_t controller) {
    return "127.0.0." + std::to_string(1 + controller);
}

void Peer::stop() {
    if (process_ > 0) {
        close(stop_);
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }
}

}  // namespace soak

extern "C" ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
    if (soak::sending != nullptr) {
        size_t length = 0;
        const uint8_t* package = soak::package_in(static_cast<const uint8_t*>(data), size, length);
        if (package != nullptr) {
            soak::stamp(package, length);
        }
    }
    return __real_send(fd, data, size, flags);
}
