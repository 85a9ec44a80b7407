// What `inlinectl show` shows, gathered from a window and a card, whether or not a host is at work.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "shown_flows.h"
#include "snapshot.h"
#include "stored_tables.h"
#include "vlc/card_access.h"
#include "vlc/state_directory.h"
#include "vlc/window.h"

namespace inlinectl {

struct ShownAttribute {
    uint16_t uidb;
    uidb_attribute stored;
    const vlc::InterfaceConfig *interface; // of the card file; null for one that it does not have
};

struct ShownNode {
    services::StoredNode stored;
    std::vector<NpRow> nps;
};

struct ShownVservice {
    uint32_t index;
    vservice_config config;
    std::optional<ShownNode> programmed;
    bool takes_traffic = false; // an interface of the card file leads to it

    vlc::PacketCount hits() const; // of all NPs
};

struct ShownKey {
    uint32_t key;
    main_entry main;
    std::vector<ShownNode> nodes;
};

class ShownState {
public:
    explicit ShownState(const StatePlaces &places); // throws UsageError and StateError

    ~ShownState();

    const vlc::CardConfig &card() const { return card_->config(); }
    const std::filesystem::path &path() const { return host_.path(); }

    // Those that are set, and those of the card file.
    std::vector<ShownAttribute> attributes() const;
    // Those that are configured or programmed.
    std::vector<ShownVservice> vservices() const;
    // Nothing for a key without an entry.
    std::optional<ShownKey> key(uint32_t key) const;
    // All of the flow table.
    std::vector<ShownFlow> flows() const;

private:
    using Rows = std::map<std::string, std::pair<std::string, vlc::PacketCount>>; // by key bytes

    services::StoredTables tables() const;
    const std::vector<Rows> &rows(uint32_t table) const;
    ShownNode shown(const services::StoredNode &node) const;

    vlc::StateDirectory host_;
    std::unique_ptr<vlc::CardAccess> card_;
    std::unique_ptr<vlc::Window> window_;
    mutable std::map<uint32_t, std::vector<Rows>> rows_; // by table, read once
};

void write_text(std::ostream &out, const std::vector<ShownAttribute> &attributes);
void write_json(std::ostream &out, const std::vector<ShownAttribute> &attributes);
void write_text(std::ostream &out, const std::vector<ShownVservice> &services);
void write_json(std::ostream &out, const std::vector<ShownVservice> &services);
void write_text(std::ostream &out, const ShownKey &key);
void write_json(std::ostream &out, const ShownKey &key);

} // namespace inlinectl
