// Every log site of attributes, command lists and virtual services is reached, told by its number.
#include <set>

#include "debug_points.h"
#include "inline_service_attributes.h"
#include "vservice_fixture.h"

using namespace test;

namespace {

class ServiceSites : public VserviceTest {
protected:
    ServiceSites()
    {
        services.script("_ltrace", [this](const vlc::ServiceCall &call) {
            const uint64_t mask = (uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1;
            said.insert(static_cast<uint32_t>(call.args[1] & mask));
            return std::optional<uint64_t>();
        });
    }

    ~ServiceSites() override { services.stop_forcing(); }

    // Sites of a source file that were not said; empty, too, for a file without any.
    Lines silent(const std::string &file)
    {
        Lines sites;
        size_t known = 0;
        for (const ed_debug_point &point : debug_points()) {
            if (file_name(point) != file)
                continue;
            ++known;
            if (said.count(point.number) == 0)
                sites.emplace_back(std::string(point.function) + ": " + point.format);
        }
        EXPECT_GT(known, 0u) << file;
        return sites;
    }

    std::set<uint32_t> said;
};

TEST_F(ServiceSites, OfAttributesAreAllReached)
{
    uint32_t ip = 0;
    uint32_t value = 0;
    inline_api_set_uidb_to_app(1, 4096, 1);
    inline_api_set_uidb_to_vqi(4096, 1);
    inline_api_set_dirty_bit(4096);
    inline_api_reset_dirty_bit(4096);
    inline_api_set_slot_iftype(4096, 1, 1);
    inline_api_get_infra_ip(99, &ip, &value);
    EXPECT_EQ(silent("inline_service_attributes.cpp"), Lines{});
}

TEST_F(ServiceSites, OfCommandListsAreAllReached)
{
    command_input in = {};
    plm_inline_program_list_to_hardware(0);
    plm_inline_init_cmd_list(0, 1, 1, 0, 0, 0);
    for (uint32_t i = 0; i <= COMMAND_LIST_SLOTS; ++i)
        plm_inline_insert_cmd_to_list(0, i, 0, &in, SHADOW_DB_CREATE, 0, nullptr);
    in.key_len = COMMAND_KEY_BYTES + 1;
    plm_inline_insert_cmd_to_list(0, 1, 0, &in, SHADOW_DB_CREATE, 0, nullptr);
    store(1, 1, 0, "a");
    plm_inline_program_entry_in_hardware_list(1, 1, 1, &in);
    EXPECT_EQ(silent("inline_service_cmdlist.cpp"), Lines{});
}

TEST_F(ServiceSites, OfVirtualServicesAreAllReached)
{
    handle(add_message().record({.index = 1}).record({.index = 1, .encap = 2}));
    handle(add_message().record({.index = 256}));
    handle(delete_message().index(1).index(256));
    handle(VserviceMessage(3));
    services.force("appl_construct_config_db_key", 33);
    add({.index = 1});
    root->vservice_db = nullptr;
    plm_vservice_init(0, 0, 0, 0);
    handle(VserviceMessage(3));
    EXPECT_EQ(silent("inline_service_vservice.cpp"), Lines{});
}

} // namespace
