#include "ctf_export.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

#include "vlc/state_error.h"

namespace inlinectl {
namespace {

namespace fs = std::filesystem;
using Kind = vlc::EventArgument::Kind;

constexpr uint32_t ctf_magic = 0xC1FC1FC1;
constexpr int log_level_info = 6;
constexpr int log_level_error = 3;

constexpr const char *metadata_begin = R"(/* CTF 1.8 */

typealias integer { size = 32; align = 8; signed = false; } := uint32_t;
typealias integer { size = 64; align = 8; signed = false; } := uint64_t;
typealias integer { size = 64; align = 8; signed = false; base = 16; } := hex64_t;
typealias integer { size = 64; align = 8; signed = true; } := int64_t;

trace {
    major = 1;
    minor = 8;
    byte_order = le;
    packet.header := struct { uint32_t magic; uint32_t stream_id; };
};

env { tracer_name = "inlinectl"; };

clock { name = card; description = "nanoseconds since 1970"; freq = 1000000000; offset = 0; };

typealias integer {
    size = 64; align = 8; signed = false; map = clock.card.value;
} := card_time_t;
)";

// Little-endian words and texts, one behind the other.
class Bytes {
public:
    void add32(uint32_t value) { add(value, 4); }
    void add64(uint64_t value) { add(value, 8); }
    void add_text(const std::string &text) { bytes_.append(text.c_str(), text.size() + 1); }
    void add_bytes(const Bytes &other) { bytes_ += other.bytes_; }
    size_t size() const { return bytes_.size(); }
    const std::string &bytes() const { return bytes_; }

private:
    void add(uint64_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            bytes_ += static_cast<char>(value >> 8 * i & 0xFF);
    }
    std::string bytes_;
};

// The reader takes one underscore off the front, and what is behind it may be any word.
std::string identifier(const std::string &expression, std::set<std::string> &taken)
{
    std::string name = "_";
    for (const char letter : expression) {
        const bool fits = std::isalnum(static_cast<unsigned char>(letter)) != 0;
        if (fits || (name.size() > 1 && name.back() != '_'))
            name += fits ? letter : '_';
    }
    while (name.size() > 1 && name.back() == '_')
        name.pop_back();
    const std::string plain = name;
    for (int i = 2; name == "_" || !taken.insert(name).second; ++i)
        name = plain + "_" + std::to_string(i);
    return name;
}

std::string quoted(const std::string &text)
{
    std::string quoted = "\"";
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            quoted += '\\';
        quoted += letter;
    }
    return quoted + "\"";
}

const char *type_of(const DecodedArgument &argument)
{
    switch (argument.value.kind) {
    case Kind::signed_number:
        return "int64_t";
    case Kind::unsigned_number:
        return "uint64_t";
    case Kind::hexadecimal:
        return "hex64_t";
    case Kind::text:
        break;
    }
    return "string";
}

// What is the same for all events of a class: those of one site, or those without one that have
// arguments alike.
std::string class_text(const DecodedEvent &event)
{
    std::ostringstream text;
    const std::string name = event.site
                                 ? site_place(*event.site) + " " + printable(event.site->function)
                                 : "no known site";
    const bool failure = event.site && event.site->level != 0;
    text << "    name = " << quoted(event.component + " " + name) << ";\n"
         << "    loglevel = " << (failure ? log_level_error : log_level_info) << ";\n"
         << "    fields := struct {\n"
         << "        string _text;\n"
         << "        uint32_t _site_number;\n"
         << "        uint64_t _sequence_number;\n";
    std::set<std::string> taken{"_text", "_site_number", "_sequence_number"};
    for (const DecodedArgument &argument : event.arguments)
        text << "        " << type_of(argument) << " " << identifier(argument.name, taken) << ";\n";
    text << "    };\n";
    return text.str();
}

void add_fields(Bytes &bytes, const DecodedEvent &event)
{
    bytes.add_text(event.text);
    bytes.add32(event.number());
    bytes.add64(event.sequence());
    for (const DecodedArgument &argument : event.arguments) {
        if (argument.value.kind == Kind::text)
            bytes.add_text(argument.text);
        else
            bytes.add64(argument.value.number);
    }
}

// One buffer: its event classes for the metadata, and its packet.
class Stream {
public:
    Stream(uint32_t id, const std::string &buffer) : id_(id), buffer_(buffer) {}

    void take(const DecodedEvent &event)
    {
        if (event.buffer != buffer_)
            return;
        const auto time = static_cast<uint64_t>(std::max<int64_t>(event.record.nanoseconds, 0));
        first_time_ = count_ == 0 ? time : first_time_;
        last_time_ = time;
        ++count_;
        const auto class_id = static_cast<uint32_t>(classes_.size());
        events_.add32(classes_.emplace(class_text(event), class_id).first->second);
        events_.add64(time);
        add_fields(events_, event);
    }

    const std::string &name() const { return buffer_; }
    bool is_empty() const { return count_ == 0; }

    std::string metadata() const
    {
        std::ostringstream text;
        text << "\nstream {\n    id = " << id_ << ";\n"
             << "    event.header := struct { uint32_t id; card_time_t timestamp; };\n"
             << "    packet.context := struct {\n"
             << "        card_time_t timestamp_begin;\n        card_time_t timestamp_end;\n"
             << "        uint64_t content_size;\n        uint64_t packet_size;\n    };\n};\n";
        for (const auto &[fields, class_id] : classes_)
            text << "\nevent {\n    id = " << class_id << ";\n    stream_id = " << id_ << ";\n"
                 << fields << "};\n";
        return text.str();
    }

    std::string packet() const
    {
        constexpr size_t head_bytes = 2 * 4 + 4 * 8;
        const uint64_t bits = (head_bytes + events_.size()) * 8;
        Bytes bytes;
        bytes.add32(ctf_magic);
        bytes.add32(id_);
        for (const uint64_t word : {first_time_, last_time_, bits, bits})
            bytes.add64(word);
        bytes.add_bytes(events_);
        return bytes.bytes();
    }

private:
    uint32_t id_;
    std::string buffer_;
    std::map<std::string, uint32_t> classes_; // by their text
    Bytes events_;
    uint64_t count_ = 0;
    uint64_t first_time_ = 0;
    uint64_t last_time_ = 0;
};

[[noreturn]] void fail(const fs::path &path, const std::string &why)
{
    throw vlc::StateError(path.string() + ": " + why);
}

void write_file(const fs::path &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file)
        fail(path, "cannot be written");
}

void make_directory(const fs::path &directory)
{
    std::error_code error;
    fs::create_directory(directory, error);
    if (error)
        fail(directory, "cannot be made: " + error.message());
    const bool is_empty = fs::is_empty(directory, error);
    if (error)
        fail(directory, "cannot be read: " + error.message());
    if (!is_empty)
        fail(directory, "is not empty, and a trace wants a directory of its own");
}

} // namespace

void write_ctf(const fs::path &directory, std::vector<DecodedEvent> events)
{
    make_directory(directory);
    std::ranges::stable_sort(events, {},
                             [](const DecodedEvent &event) { return event.record.nanoseconds; });
    std::string metadata = metadata_begin;
    uint32_t id = 0;
    for (const char *buffer : trace_buffers) {
        Stream stream(id++, buffer);
        for (const DecodedEvent &event : events)
            stream.take(event);
        metadata += stream.metadata();
        if (!stream.is_empty())
            write_file(directory / stream.name(), stream.packet());
    }
    write_file(directory / "metadata", metadata);
}

} // namespace inlinectl
