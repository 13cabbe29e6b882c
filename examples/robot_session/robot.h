// A connected controller: its names turned into rows, its recipes set up.
#ifndef EXAMPLES_ROBOT_SESSION_ROBOT_H
#define EXAMPLES_ROBOT_SESSION_ROBOT_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

using Joints = std::array<double, 6>;

// What one output package holds behind its header, in recipe order.
struct Outputs {
    uint32_t package;  // counted by the controller
    double time;       // seconds on the controller's clock
    Joints position;   // rad
    uint64_t digital_outputs;
    uint32_t heartbeat;  // the input of that name, echoed
};

class Robot {
public:
    // Registers the controller and connects; over raw Ethernet when `interface` is not empty.
    Robot(const std::string& address, const std::string& interface);
    // Ends what is still open.
    ~Robot();
    Robot(const Robot&) = delete;
    Robot& operator=(const Robot&) = delete;

    void read_catalogue();
    void set_up_recipes();
    void start();
    void pause();
    void destroy();

    uint32_t handle() const { return handle_; }
    // The row of a method; throws when the controller has none of that name.
    int32_t method(const std::string& name) const;
    // Rows of the three catalogues that the application uses.
    size_t rows_found() const { return rows_found_; }

    // False before the first package has come.
    bool read(Outputs& outputs) const;
    // Sends one input package.
    int32_t write(uint32_t heartbeat) const;

private:
    uint32_t handle_ = 0;
    int64_t mode_;
    uint32_t input_recipe_ = 0;
    size_t rows_found_ = 0;
};

#endif
