// A running card whose shadow DB and hardware a test puts apart, and what the audit says then.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "card_fixture.h"
#include "card_hardware.h"
#include "shadow_audit.h"

namespace test {

inline constexpr uint32_t swapping_card = 0xD20001;
inline constexpr uint32_t unswapped_card = 0xD10001;

// "entry_missing NP 1", ... : what a finding is about, without its words.
inline std::string short_text(const services::Finding &finding)
{
    std::string text = services::name_of(finding.kind);
    if (finding.np != services::Finding::none)
        text += " NP " + std::to_string(finding.np);
    if (finding.entry_id != services::Finding::none)
        text += " entry " + std::to_string(finding.entry_id);
    return text;
}

class AuditedCardTest : public CardTest {
protected:
    explicit AuditedCardTest(uint32_t card_type = swapping_card, uint16_t num_nps = 2)
        : CardTest(num_nps)
    {
        if (card_type != config.card_type) {
            vlc::CardConfig other = config;
            other.card_type = card_type;
            restart_card(other);
        }
        bring_up();
        hardware_ = std::make_unique<inlinectl::CardHardware>(card->access());
    }

    services::AuditInput input() const
    {
        return {.root = root,
                .in_shared_memory = inlinectl::in_window(card->window()),
                .counters_unswapped = config.card_type == unswapped_card,
                .first_counter = vlc::CounterBank::first,
                .counter_count = vlc::CounterBank::count,
                .num_nps = config.num_nps,
                .hardware = hardware_.get()};
    }
    services::AuditReport look() const { return services::audit(input()); }

    // What the audit finds, in short.
    std::vector<std::string> found() const
    {
        std::vector<std::string> texts;
        for (const services::Finding &finding : look().findings)
            texts.push_back(short_text(finding));
        return texts;
    }

    shmem_node *store(uint16_t key, uint32_t entry_id, uint32_t table, const std::string &text,
                      uint32_t hw_index = 0)
    {
        Batch batch(key);
        batch.create(entry_id, table, text, "01234567", hw_index);
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        run_events();
        return stored_node(key, entry_id);
    }
    // Three entries over two keys and both tables, one of them without counters.
    void store_three()
    {
        seven = store(1, 7, SHADOW_DB_SERVICE_CONFIG, "seven");
        eight = store(1, 8, SHADOW_DB_EXT_CONF, "eight");
        nine = store(2, 9, SHADOW_DB_SERVICE_CONFIG, "nine", SHADOW_DB_NO_HW_INDEX);
    }

    static vlc::Bytes bytes_of(const std::string &text)
    {
        return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
    }
    vlc::NpTable &table(uint32_t np, uint32_t kind)
    {
        return card->nps()[np].table(static_cast<vlc::TableKind>(kind));
    }

    shmem_node *seven = nullptr, *eight = nullptr, *nine = nullptr;

private:
    std::unique_ptr<inlinectl::CardHardware> hardware_; // of the card that is alive
};

} // namespace test
