#include "state_on_disk.h"

#include <filesystem>
#include <fstream>

#include "made_capture.h"
#include "vlc/state_directory.h"
#include "vlc/window.h"

namespace test {

StateOnDisk::StateOnDisk()
{
    std::filesystem::remove_all(state);
    const MadePacket web{.kind = MadePacket::Kind::tcp, .destination_port = 80};
    const MadePacket name{.kind = MadePacket::Kind::udp, .destination_port = 53};
    write_capture(capture, {web, web, name});
    EXPECT_EQ(inlinectl({"run", "--quiet", "--state", state, "--pcap", capture}).exit_code, 0);
}

Outcome StateOnDisk::inlinectl(std::vector<std::string> arguments, Environment environment)
{
    return run_program({.program = INLINECTL,
                        .arguments = std::move(arguments),
                        .environment = std::move(environment)});
}

std::string StateOnDisk::text_of(std::vector<std::string> arguments, int exit_code)
{
    const Outcome outcome = inlinectl(std::move(arguments));
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
}

std::vector<StateOnDisk::json> StateOnDisk::lines_of(std::vector<std::string> arguments,
                                                     int exit_code)
{
    arguments.emplace_back("--json");
    std::vector<json> lines;
    for (const std::string &line : test::lines_of(text_of(std::move(arguments), exit_code)))
        lines.push_back(json::parse(line));
    return lines;
}

std::vector<StateOnDisk::json> StateOnDisk::of_kind(const std::vector<json> &lines,
                                                    const std::string &kind)
{
    std::vector<json> found;
    for (const json &line : lines) {
        if (line["kind"] == kind)
            found.push_back(line);
    }
    return found;
}

void StateOnDisk::expect_refusal(const std::vector<std::string> &arguments, const std::string &why)
{
    const Outcome outcome = inlinectl(arguments);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "inlinectl: " + why + "\n");
    EXPECT_EQ(outcome.out, "");
}

void StateOnDisk::disturb(const Change &change, const std::string &path)
{
    const vlc::StateDirectory directory(path, vlc::Access::read_write);
    vlc::NpStore nps(directory, *directory.card());
    const vlc::Window window(directory, directory.card()->window_bytes);
    change(*static_cast<shadow_db *>(window.root()), nps);
}

shmem_node *StateOnDisk::node_of(shadow_db &root, uint32_t key, uint32_t entry_id)
{
    for (const list_record &list : root.main_table[key]->table_array) {
        for (list_link *link = list.first; link != nullptr; link = link->next) {
            auto *node = reinterpret_cast<shmem_node *>(link);
            if (node->app_node.entry_id == entry_id)
                return node;
        }
    }
    ADD_FAILURE() << "no entry " << entry_id;
    return nullptr;
}

void StateOnDisk::overwrite(const std::string &file, long place, const std::string &bytes)
{
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(place);
    stream << bytes;
    ASSERT_TRUE(stream.good());
}

} // namespace test
