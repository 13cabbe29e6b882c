// A client at one end of a cable, and a controller at the other whose TCP ports follow scripts and
// whose frames the test writes byte by byte.
#ifndef TESTS_RAW_PATH_RAW_PATH_H
#define TESTS_RAW_PATH_RAW_PATH_H

#include <memory>
#include <string>

#include "tests/client/client_fixture.h"
#include "tests/support/raw_link.h"

namespace test {

// The client's end is host0 (02:00:00:00:00:0A), the controller's robot0 (02:00:00:00:00:0B).
class RawPath : public RawLink {
protected:
    void SetUp() override;
    void TearDown() override;

    std::unique_ptr<Port> robot_;  // what the controller sends and receives frames with
};

// Ends the receive thread, if there is one, as an application may after its last handle.
void end_receive_thread();

// A package: length word, 'U', recipe id 1, and these values.
Bytes package(const Bytes& values);
// What a frame of the controller is when another station sends it.
Bytes from_foreign_station(Bytes frame);
// A frame as the client sends it to the controller.
Bytes client_frame(uint8_t code, uint8_t sequence, const Bytes& payload);

struct RawSession : Session {
    explicit RawSession(int number = 1) : Session(number) {}

    // Connects over an interface with the address 02:00:00:00:00:0A and negotiates.
    void negotiate_raw(uint32_t nack, const char* interface = "host0");

    // The package that the application would read now, by its own length; empty before the first.
    Bytes latest() const;
    bool shows(const Bytes& expected) const;
    // So many bytes of a member of the dataspace.
    Bytes bytes_at(size_t offset, size_t count) const;
    // A set-point of two values for the method in row 1, whose id is 0x0201.
    int32_t servo() const;
};

}  // namespace test

#endif
