// The rows of a card file: slots, interfaces, VRFs, CPU ports.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vlc/card_config.h"
#include "vlc/toml_reader.h"

namespace vlc {

// Whether a name is that of rows, each written [[name]].
bool is_name_of_rows(std::string_view name);
void read_rows(const TomlReader &reader, std::string_view name, const toml::node &rows,
               CardConfig &config);
// "interface", "interface.handle", ...
std::vector<std::string> names_in_rows();
// A document of the rows alone; empty without any.
toml::table table_of_rows(const CardConfig &config);

} // namespace vlc
