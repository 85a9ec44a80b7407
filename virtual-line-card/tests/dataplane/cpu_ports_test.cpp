// The CPU's ports: the capture files that frames go to, what a kill leaves of them, and devices.
#include "vlc/cpu_ports.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "vlc/state_error.h"

namespace {

using vlc::CpuPorts;
using vlc::FrameOutcome;
using Frame = std::vector<uint8_t>;

constexpr size_t head_bytes = 24;
constexpr size_t record_bytes = 16;

std::string content_of(const std::filesystem::path &file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

std::string in_order(std::initializer_list<uint32_t> words)
{
    std::string bytes;
    for (const uint32_t word : words) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(word >> shift);
    }
    return bytes;
}

// As anybody reads a capture with nanoseconds, Ethernet.
std::string file_head()
{
    return in_order({0xA1B23C4D, 0x00040002, 0, 0, 65536, 1});
}

class CpuPortsTest : public testing::Test {
protected:
    CpuPortsTest()
    {
        std::string name = testing::TempDir() + "cpu-ports-XXXXXX";
        path = mkdtemp(name.data());
        directory.emplace(path / "card", vlc::Access::read_write);
    }
    ~CpuPortsTest() override { std::filesystem::remove_all(path); }

    void open()
    {
        ports.reset();
        ports.emplace(config, *directory);
        ports->mend();
    }
    std::filesystem::path file(uint32_t port) const
    {
        return path / "card" / ("cpu-port" + std::to_string(port) + ".pcap");
    }
    void write(uint32_t port, const std::string &bytes) const
    {
        std::ofstream(file(port), std::ios::binary | std::ios::trunc) << bytes;
    }
    FrameOutcome send(uint32_t port, const std::string &text)
    {
        return ports->send(port, {reinterpret_cast<const uint8_t *>(text.data()), text.size()},
                           now);
    }
    std::string refusal()
    {
        try {
            open();
        } catch (const vlc::StateError &error) {
            return error.what();
        }
        return "";
    }

    std::filesystem::path path;
    std::optional<vlc::StateDirectory> directory;
    vlc::CardConfig config;
    std::optional<CpuPorts> ports;
    int64_t now = 1'767'225'600'000'000'000;
};

const std::string first_second = in_order({1767225600, 0});

} // namespace

TEST_F(CpuPortsTest, NothingIsMadeBeforeAFrameIsSent)
{
    open();
    EXPECT_FALSE(std::filesystem::exists(file(16)));
    EXPECT_FALSE(std::filesystem::exists(file(17)));
}

TEST_F(CpuPortsTest, AFrameStandsInItsPortsFileWithItsTime)
{
    open();
    EXPECT_EQ(send(16, "a frame"), FrameOutcome{});
    EXPECT_EQ(content_of(file(16)), file_head() + first_second + in_order({7, 7}) + "a frame");
    EXPECT_FALSE(std::filesystem::exists(file(17)));
}

TEST_F(CpuPortsTest, FramesFollowOneAnother)
{
    open();
    send(17, "one");
    now += 2'000'000'345;
    send(17, "another");
    EXPECT_EQ(content_of(file(17)), file_head() + first_second + in_order({3, 3}) + "one" +
                                        in_order({1767225602, 345, 7, 7}) + "another");
}

TEST_F(CpuPortsTest, ALaterProcessAppends)
{
    open();
    send(16, "one");
    open();
    send(16, "two");
    const std::string two = first_second + in_order({3, 3}) + "two";
    EXPECT_EQ(content_of(file(16)), file_head() + first_second + in_order({3, 3}) + "one" + two);
}

TEST_F(CpuPortsTest, AnEmptyFrameAndTheLongestOneAreTaken)
{
    open();
    EXPECT_EQ(send(16, ""), FrameOutcome{});
    EXPECT_EQ(send(16, std::string(65536, 'x')), FrameOutcome{});
    open();
    EXPECT_EQ(send(16, "behind"), FrameOutcome{});
    EXPECT_EQ(content_of(file(16)).size(), head_bytes + 3 * record_bytes + 65536 + 6);
}

TEST_F(CpuPortsTest, APortThatTheCardDoesNotHaveRefusesAFrame)
{
    open();
    EXPECT_EQ(send(18, "a frame"), (FrameOutcome{19, 19}));
    EXPECT_EQ(send(0, "a frame"), (FrameOutcome{19, 19}));
    EXPECT_EQ(send(0xFFFFFFFF, "a frame"), (FrameOutcome{19, 19}));
}

TEST_F(CpuPortsTest, RowsSayOtherPortsAndNone)
{
    config.cpu_ports = {{.np = 0, .port = 5}, {.np = 1, .is_there = false}};
    open();
    EXPECT_EQ(send(5, "a frame"), FrameOutcome{});
    EXPECT_EQ(send(16, "a frame").code, 19u);
    EXPECT_EQ(send(17, "a frame").code, 19u);
    EXPECT_TRUE(std::filesystem::exists(file(5)));
}

TEST_F(CpuPortsTest, TwoNpsMayHaveOnePort)
{
    config.cpu_ports = {{.np = 1, .port = 16}};
    open();
    EXPECT_EQ(send(16, "a frame"), FrameOutcome{});
    EXPECT_EQ(send(17, "a frame").code, 19u);
}

// ---- what a kill leaves ------------------------------------------------------------------------

// Cut at every byte: what is whole stays, the rest goes, and the next frame follows.
TEST_F(CpuPortsTest, AFileCutOffAnywhereIsMendedAtTheNextOpening)
{
    open();
    send(16, "one");
    send(16, "second");
    const std::string all = content_of(file(16));
    const size_t first_end = head_bytes + record_bytes + 3;
    for (size_t cut = 0; cut <= all.size(); ++cut) {
        write(16, all.substr(0, cut));
        open();
        const size_t whole = cut == all.size()   ? all.size()
                             : cut >= first_end  ? first_end
                             : cut >= head_bytes ? head_bytes
                                                 : 0;
        EXPECT_EQ(content_of(file(16)), all.substr(0, whole)) << cut;
        EXPECT_EQ(send(16, "next"), FrameOutcome{});
        EXPECT_EQ(content_of(file(16)), (whole == 0 ? file_head() : all.substr(0, whole)) +
                                            first_second + in_order({4, 4}) + "next")
            << cut;
    }
}

TEST_F(CpuPortsTest, LookingAtAFileChangesNothing)
{
    open();
    send(16, "one");
    const std::string all = content_of(file(16));
    write(16, all.substr(0, all.size() - 1));
    const CpuPorts looked(config, *directory);
    EXPECT_EQ(content_of(file(16)).size(), all.size() - 1);
}

TEST_F(CpuPortsTest, AFileThatIsNoCaptureIsRefusedAndLeftAsItWas)
{
    for (const std::string &bytes : {
             std::string("notes of somebody"), std::string(24, '\0'),
             in_order({0xA1B2C3D4, 0x00040002, 0, 0, 65536, 1}),  // microseconds
             in_order({0xA1B23C4D, 0x00040002, 0, 0, 65536, 101}) // not Ethernet
         }) {
        write(16, bytes);
        EXPECT_EQ(refusal(), file(16).string() + ": is no capture of a CPU port, or is damaged");
        EXPECT_EQ(content_of(file(16)), bytes);
    }
}

TEST_F(CpuPortsTest, AFrameInTheMiddleThatCannotBeIsRefusedAndNothingIsCutOff)
{
    const std::string damaged =
        file_head() + in_order({1, 2, 3, 4}) + "one" + in_order({1, 2, 3, 3}) + "two";
    write(16, damaged);
    EXPECT_NE(refusal(), "");
    write(17, "");
    write(16, file_head() + in_order({1, 2, 65537, 65537}) + "one");
    EXPECT_NE(refusal(), "");
    EXPECT_EQ(content_of(file(16)).size(), head_bytes + record_bytes + 3);
}

TEST_F(CpuPortsTest, WhatIsNoFileIsRefused)
{
    std::filesystem::create_directory(file(16));
    EXPECT_EQ(refusal(), file(16).string() + ": is no regular file");
    std::filesystem::remove(file(16));
    std::filesystem::create_symlink("/dev/null", file(16));
    EXPECT_NE(refusal(), "");
}

TEST_F(CpuPortsTest, AFrameThatTheDiskRefusesLeavesNothingBehind)
{
    open();
    send(16, "one");
    const std::string before = content_of(file(16));
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    // Room for a part of the frame, then for nothing.
    for (const rlim_t room : {before.size() + 20, before.size()}) {
        const rlimit little = {room, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &little);
        const FrameOutcome outcome = send(16, "another frame");
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(outcome.code, 0u);
        EXPECT_TRUE(outcome.retcode == ENOSPC || outcome.retcode == EFBIG) << outcome.retcode;
        EXPECT_EQ(content_of(file(16)), before);
    }
    EXPECT_EQ(send(16, "two"), FrameOutcome{});
    EXPECT_EQ(content_of(file(16)), before + first_second + in_order({3, 3}) + "two");
}

// ---- devices -----------------------------------------------------------------------------------

TEST_F(CpuPortsTest, ADeviceThatIsNotThereIsRefusedAtTheStart)
{
    config.cpu_ports = {{.np = 0, .device = "no-such-device"}};
    EXPECT_EQ(refusal(), "CPU port 16: the device 'no-such-device' is not there");
}

TEST_F(CpuPortsTest, ADeviceOfAnNpThatTheCardDoesNotHaveIsNotOpened)
{
    config.cpu_ports = {{.np = 7, .device = "no-such-device"}};
    EXPECT_EQ(refusal(), "");
}

TEST_F(CpuPortsTest, OnePortWithTwoDevicesIsRefused)
{
    config.cpu_ports = {{.np = 0, .port = 3, .device = "lo"}, {.np = 1, .port = 3, .device = "lo"}};
    const std::string why = refusal();
    if (why.find("CAP_NET_RAW") != std::string::npos)
        GTEST_SKIP() << why;
    EXPECT_EQ(why, "CPU port 3: has two devices");
}
