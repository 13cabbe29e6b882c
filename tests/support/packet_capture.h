// The frames of a link, kept for those who look into a failed test.
#ifndef TESTS_SUPPORT_PACKET_CAPTURE_H
#define TESTS_SUPPORT_PACKET_CAPTURE_H

#include <string>

namespace test {

// Watches one interface, in both directions. When the running test has failed by the end of this
// object's life, the frames are written to TEST.pcap, for any packet viewer, in the directory
// that VEXO_TEST_ARTIFACTS names (or else the one for temporary files), and the path is printed.
// The frames wait in the socket meanwhile (some thousands; later ones are lost), so that nothing
// runs beside the test.
class PacketCapture {
public:
    explicit PacketCapture(const std::string& interface_name);
    ~PacketCapture();
    PacketCapture(const PacketCapture&) = delete;
    PacketCapture& operator=(const PacketCapture&) = delete;

    // Writes the frames seen since the last call to a pcap file.
    void save(const std::string& path);

private:
    int socket_;
};

}  // namespace test

#endif
