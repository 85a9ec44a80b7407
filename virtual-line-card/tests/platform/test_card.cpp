#include "test_card.h"

#include <cstdlib>
#include <cstring>

namespace card_test {

ScratchDirectory::ScratchDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "card-test-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::runtime_error("cannot make " + name);
    path_ = name;
}

ScratchDirectory::~ScratchDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

vlc::CardConfig small_card()
{
    vlc::CardConfig config;
    config.name = "small";
    config.num_nps = 2;
    config.service_config_capacity = 8;
    config.ext_conf_capacity = 8;
    config.flow_capacity = 8;
    config.dynamic_counters = 8;
    config.window_bytes = uint64_t{1} << 20;
    return config;
}

CardTest::CardTest(Deployment deployment)
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    if (deployment == Deployment::split)
        start_card();
    start_process();
}

void CardTest::start_card()
{
    thread_ = std::make_unique<CardThread>(small_card(), card_directory(), socket());
}

void CardTest::start_process()
{
    if (thread_)
        card_.emplace(vlc::CardAtSocket{socket()}, host_directory());
    else
        card_.emplace(small_card(), card_directory());
}

vlc::NpStore &CardTest::nps()
{
    return thread_ ? thread_->hardware().nps() : card_->nps();
}

PrmControl CardTest::prm_control()
{
    if (!thread_)
        return {card_->prm(), [this](const auto &act) { act(card_->prm()); }};
    return {thread_->hardware().prm(), [this](const auto &act) {
                thread_->perform([&act](vlc::Hardware &hardware) { act(hardware.prm()); });
                card_->access().settle();
            }};
}

CardTest::~CardTest()
{
    vlc::set_service_tap({});
    card_.reset();
    thread_.reset();
    vlc::CardClock::set_mode(vlc::ClockMode::real);
}

void CardTest::restart_process()
{
    card_.reset();
    start_process();
}

void CardTest::run_for(vlc::CardClock::duration time)
{
    bool is_over = false;
    events().after(time, [&is_over] { is_over = true; });
    events().run_until([&is_over] { return is_over; });
}

namespace {

void *registered_handle = nullptr;

} // namespace

Heard &heard()
{
    static Heard everything;
    return everything;
}

void on_notification(struct shadow_db *, const prm_notification *notification)
{
    heard().notifications.push_back(std::to_string(notification->notif_class) + '.' +
                                    std::to_string(notification->event));
}

void on_answers()
{
    heard().callbacks++;
    prm_async_response answer;
    for (int i = 0; i < heard().answers_per_callback; i++) {
        if (prm_srh_async_resp_data(registered_handle, &answer) != 0)
            return;
        heard().answers.push_back(answer);
    }
}

uint32_t on_delayed()
{
    heard().delayed++;
    return 0;
}

ClientTest::ClientTest(Deployment deployment) : CardTest(deployment)
{
    heard() = {};
    registered_handle = nullptr;
    EXPECT_EQ(0u, open());
    EXPECT_EQ(0u, register_client());
    events().run_until_idle();
    heard() = {};
}

void *ClientTest::handle() const
{
    return registered_handle;
}

uint32_t ClientTest::number() const
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(registered_handle));
}

uint32_t ClientTest::open(const char *client)
{
    void *connection = nullptr;
    return prm_mgr_open(events().handle(), 0, client, on_notification, PRM_MGR_OPEN_EVENTS, nullptr,
                        &connection);
}

uint32_t ClientTest::register_client()
{
    if (const uint32_t code = prm_srh_register(&registered_handle, PRM_SRH_CLIENT_KIND,
                                               events().handle(), on_answers))
        return code;
    return prm_srh_set_name(registered_handle, client_name.c_str());
}

uint32_t ClientTest::add(const std::string &key, const std::string &result)
{
    auto record = make_record(0, vlc::TableKind::service_config, PRM_OP_ADD, key, result);
    return prm_srh_service_config_add(handle(), &record);
}

prm_config_record make_record(uint32_t np, vlc::TableKind table, uint32_t operation,
                              const std::string &key, const std::string &result)
{
    prm_config_record record{};
    record.np = np;
    record.kind = PRM_RECORD_KIND;
    const uint32_t number =
        table == vlc::TableKind::service_config ? PRM_TABLE_SERVICE_CONFIG : PRM_TABLE_EXT_CONF;
    record.refnum = operation << PRM_REFNUM_OP_SHIFT | number;
    record.key_len = static_cast<uint32_t>(key.size());
    std::memcpy(record.key, key.data(), std::min<size_t>(key.size(), PRM_KEY_BYTES));
    record.result_len = static_cast<uint32_t>(result.size());
    std::memcpy(record.result, result.data(), std::min<size_t>(result.size(), PRM_RESULT_BYTES));
    return record;
}

std::string key_of(const prm_async_response &answer)
{
    return {answer.key, answer.key + answer.key_size};
}

std::string result_of(const prm_async_response &answer)
{
    return {answer.result, answer.result + answer.result_size};
}

vlc::Bytes bytes_of(const std::string &text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

} // namespace card_test
