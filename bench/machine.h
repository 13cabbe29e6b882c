// Clock, processors and pacing of the benches.
#ifndef BENCH_MACHINE_H
#define BENCH_MACHINE_H

#include <pthread.h>

#include <cstdint>
#include <string>

namespace bench {

int64_t now_ns();

// CPU time that a thread has used.
int64_t cpu_time_ns(pthread_t thread);

// Where threads run: the controller on the first processor that the process may use, the
// application on the last one. With one processor both are the same.
enum class Place { controller, application };
int processor_of(Place place);
void pin(Place place, pthread_t thread = pthread_self());

// Ends the process with a message, unless `held`.
void require(bool held, const std::string& what);

void run_ip(const std::string& arguments);

// Makes calls no closer together than a period, without sleeping.
class Pace {
public:
    explicit Pace(int64_t period_ns) : period_ns_(period_ns), next_(now_ns()) {}
    void wait() {
        while (now_ns() < next_) {
        }
        next_ = now_ns() + period_ns_;
    }

private:
    int64_t period_ns_;
    int64_t next_;
};

}  // namespace bench

#endif
