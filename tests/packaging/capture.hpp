// A daemon whose datagrams are captured on the wire, and what tshark's dissector makes of them.
#ifndef CORVANE_TESTS_PACKAGING_CAPTURE_HPP
#define CORVANE_TESTS_PACKAGING_CAPTURE_HPP

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {

// Field by field what a frame shall show; several occurrences are apart by commas, "" is none.
using Fields = std::map<std::string, std::string>;

class CaptureTest : public RecorderWorld {
protected:
    void SetUp() override;

    // Captures what goes over the loopback interface to or from the daemon's port.
    void start_capture();

    // The next frame of the capture is `bytes` and shall show `fields`.
    void expect_frame(const std::string& what, const codec::Bytes& bytes, Fields fields);
    // Sends a request that shall show `fields`, takes the reply, and returns it.
    codec::Bytes exchange(UdpClient& asker, const std::string& what, const codec::Bytes& request,
                          const Fields& fields);

    // Number of the frame expected last, from 1.
    [[nodiscard]] std::string last_frame() const { return std::to_string(frames_.size()); }

    // Ends the capture, has it dissected, and compares every frame.
    void check_frames();

    // What tshark prints, with the dissector loaded.
    std::string tshark(std::vector<std::string> arguments);

private:
    struct Frame {
        std::string what;
        std::string payload;
        Fields fields;
    };

    [[nodiscard]] std::size_t captured_frames();

    std::vector<Frame> frames_;
    pid_t capturer_ = -1;
};

// A file of the source tree; empty when there is none.
[[nodiscard]] std::string source_file(const std::string& name);

// The LAN header's fields as tshark shows them.
[[nodiscard]] Fields header_fields(const codec::Bytes& message);

// How a field of a message is shown.
enum class Show { kSigned, kHex32, kFlag, kBytes };
struct Place {
    const char* name;
    std::size_t offset;
    std::size_t width;
    Show show = Show::kSigned;
    std::uint64_t flag = 0;
};

// The fields of `message` at these places, added to those that are there already behind a comma.
void add_fields(Fields& fields, const codec::Bytes& message, std::size_t base,
                const std::vector<Place>& places);

}  // namespace corvane::harness

#endif
