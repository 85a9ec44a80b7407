#include "vservice_tool.h"

#include <filesystem>
#include <fstream>

namespace test {

VserviceTool::VserviceTool()
{
    for (const char *path : {state, output, CardChild::state, CardChild::socket})
        std::filesystem::remove_all(path);
    write_card(2);
    write_services();
}

void VserviceTool::write_file(const char *path, const std::string &text)
{
    std::ofstream(path) << text;
}

void VserviceTool::write_card(uint32_t nps)
{
    std::string text = "[nps]\ncount = " + std::to_string(nps) + "\n";
    for (uint32_t i = 0; i < services; ++i) {
        const std::string number = std::to_string(i);
        text += "[[interface]]\nhandle = " + std::to_string(0x1000 + i) + "\nuidb = " + number +
                "\npic = 7\nsource = '198.18.100." + number + "'\nvservice = " + number + "\n";
    }
    write_file(card_file, text);
}

std::string VserviceTool::text_of_service(uint32_t index)
{
    const char *encapsulation = is_unsupported(index) ? "2"
                                : is_local(index)     ? "'udp-local'"
                                                      : "'udp'";
    return "[[vservice]]\nindex = " + std::to_string(index) + "\nencapsulation = " + encapsulation +
           "\nuser = " + std::to_string(index % 5) +
           "\nsource = '198.51.100.1'\ndestination = " + "'203.0.113." +
           std::to_string(index % 256) + "'\nsource_port = " + std::to_string(40000 + index) +
           "\ndestination_port = 14789\n";
}

void VserviceTool::write_services(uint32_t count)
{
    std::string text;
    for (uint32_t i = 0; i < count; ++i)
        text += text_of_service(i % records);
    write_file(services_file, text);
}

Outcome VserviceTool::inlinectl(std::vector<std::string> arguments,
                                std::function<void(pid_t)> while_it_runs)
{
    return run_program({.program = INLINECTL,
                        .arguments = std::move(arguments),
                        .while_it_runs = std::move(while_it_runs)});
}

VserviceTool::json VserviceTool::report_of(std::vector<std::string> arguments, int exit_code)
{
    arguments.emplace_back("--json");
    const Outcome outcome = inlinectl(arguments);
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.err;
    return json::parse(outcome.out);
}

VserviceTool::json VserviceTool::load(int exit_code)
{
    return report_of({"vservice", "load", services_file, "--state", state, "--card", card_file},
                     exit_code);
}

std::vector<std::string> VserviceTool::an_add(uint32_t index, const std::string &destination)
{
    return {"vservice",
            "add",
            "--state",
            state,
            "--index",
            std::to_string(index),
            "--source",
            "198.51.100.1",
            "--source-port",
            "4000",
            "--destination",
            destination,
            "--destination-port",
            "4789"};
}

VserviceTool::json VserviceTool::shown_services()
{
    return report_of({"show", "vservices", "--state", state})["vservices"];
}

void VserviceTool::expect_clean_audit()
{
    const Outcome audit = inlinectl({"audit", "--state", state});
    EXPECT_EQ(audit.exit_code, 0) << audit.out << audit.err;
}

void VserviceTool::expect_refusal(const std::vector<std::string> &arguments, const std::string &why)
{
    const Outcome outcome = inlinectl(arguments);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "inlinectl: " + why + "\n");
    EXPECT_EQ(outcome.out, "");
}

} // namespace test
