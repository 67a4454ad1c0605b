// The requests by a table of what the protocols answer, and the one road through an answer that
// they share: status, number, data.
#include "tools/fake_program.h"

#include "core/registry.h"
#include "util/ascii.h"
#include "util/bytes.h"
#include "util/text.h"

#include <algorithm>
#include <sstream>

namespace kx {

namespace {

using Clock = std::chrono::steady_clock;
using Phase = FakeDialog::Phase;
using Bytes = std::vector<std::uint8_t>;

constexpr auto PATIENCE = std::chrono::seconds(10); // for the host's next byte
constexpr auto PAUSE = std::chrono::milliseconds(500);
constexpr std::size_t RECORD_SIZE = 27; // of the generic protocol, behind its result

// How a protocol answers loads and saves.
struct Protocol {
    int fileserver;
    std::uint8_t success; // data follow
    std::uint8_t changed; // of directory
    std::uint8_t ready;   // for the data of a save
    bool big; // numbers have 32 bits, most significant byte first; else 16, lowest first
    std::uint32_t load_more; // bytes that come beyond the number
    std::uint32_t save_less; // by which the number is less than the bytes sent
};
constexpr Protocol protocols[] = {
    {FILESERVER_CBM, 0x00, 0x01, '!', false, 2, 0},
    {FILESERVER_SERIALSLAVE, '!', '.', '!', false, 0, 2},
    {FILESERVER_GENERIC, 0x00, 0x00, 0x00, true, 0, 0},
};

const Protocol* find_protocol(int fileserver) {
    const auto* found = std::ranges::find(protocols, fileserver, &Protocol::fileserver);
    return found != std::end(protocols) ? found : nullptr;
}

void put(Bytes& out, const std::string& text) {
    out.insert(out.end(), text.begin(), text.end());
}

void put_number(Bytes& out, bool big, std::uint32_t value) {
    std::uint8_t bytes[4];
    big ? put32be(bytes, value) : put16le(bytes, value);
    out.insert(out.end(), bytes, bytes + (big ? 4 : 2));
}

// A name as the keys of a C-64 send it: unshifted letters have the codes of ASCII's capitals.
std::string typed(std::string name) {
    std::ranges::transform(name, name.begin(), ascii_to_upper);
    return name;
}

// The requests, each as its protocol words it. False when it has no such request.
bool put_generic(const FakeRequest& request, std::size_t bytes, Bytes& out) {
    const auto begin = [&](char code, const std::string& name) {
        put(out, {'\x01', '\xAC', code});
        put(out, name + '\0');
    };
    if (request.verb == "load") {
        begin(0x01, request.name);
    } else if (request.verb == "save") {
        begin(0x02, request.name);
        put_number(out, true, static_cast<std::uint32_t>(bytes));
    } else if (request.verb == "cd") {
        begin(0x0A, request.name);
    } else if (request.verb == "dir") {
        begin(0x0E, "*.*");
        put_number(out, true, 0);
    }
    return true;
}

bool put_cbm(const FakeRequest& request, std::size_t /*bytes*/, Bytes& out) {
    const bool dir = request.verb == "dir";
    put(out, {'\x02', request.verb == "save" ? '\x04' : '\x03'});
    put(out, (dir ? "$" : typed(request.name)) + '\r');
    return true;
}

bool put_serialslave(const FakeRequest& request, std::size_t /*bytes*/, Bytes& out) {
    const bool dir = request.verb == "dir";
    put(out, {request.verb == "save" ? '>' : '<'});
    put(out, (dir ? "$" : typed(request.name)) + "\r\n");
    return true;
}

bool put_request(int fileserver, const FakeRequest& request, std::size_t bytes, Bytes& out) {
    switch (fileserver) {
    case FILESERVER_GENERIC:
        return put_generic(request, bytes, out);
    case FILESERVER_CBM:
        return put_cbm(request, bytes, out);
    case FILESERVER_SERIALSLAVE:
        return put_serialslave(request, bytes, out);
    default:
        return false;
    }
}

void end(FakeDialog& dialog, FakeReply& reply, bool ok, std::string words) {
    dialog.phase = Phase::Nothing;
    reply = {.ended = true, .ok = ok, .words = std::move(words), .data = std::move(dialog.data)};
    dialog.data.clear();
}

std::uint32_t number_of(const FakeDialog& dialog, bool big) {
    return big ? get32be(dialog.number.data()) : get16le(dialog.number.data());
}

// The first byte of an answer.
void take_status(FakeDialog& dialog, const Protocol& protocol, std::uint8_t status,
                 FakeReply& reply) {
    const bool saves = dialog.request.verb == "save";
    if (status == (saves ? protocol.ready : protocol.success)) {
        if (!saves) {
            dialog.phase = Phase::Number;
            return;
        }
        const auto size = static_cast<std::uint32_t>(dialog.saved.size());
        if (!protocol.big) { // the others have told it already
            put_number(dialog.out, false, size - std::min(size, protocol.save_less));
        }
        dialog.out.insert(dialog.out.end(), dialog.saved.begin(), dialog.saved.end());
        end(dialog, reply, true, text_count(size, "byte") + " sent");
    } else if (!saves && !protocol.big && status == protocol.changed) {
        end(dialog, reply, true, "directory changed");
    } else {
        end(dialog, reply, false, text_printf("refused (%02X)", status));
    }
}

void take_number(FakeDialog& dialog, const Protocol& protocol, FakeReply& reply) {
    const std::uint32_t number = number_of(dialog, protocol.big);
    dialog.number.clear();
    const std::string& verb = dialog.request.verb;
    const bool result = protocol.big && verb != "load";
    if (result && number != 0) { // -1
        const bool ok = verb == "dir" && dialog.records > 0;
        end(dialog, reply, ok,
            ok ? text_count(dialog.records, "entry", "entries") : "refused (-1)");
    } else if (result && verb == "cd") {
        end(dialog, reply, true, "directory changed");
    } else if (result) {
        dialog.phase = Phase::Record;
        dialog.left = RECORD_SIZE;
    } else {
        dialog.phase = Phase::Data;
        dialog.left = std::uint64_t{number} + protocol.load_more;
    }
}

// Of data only as much is kept as fits a machine's memory.
std::size_t take_data(FakeDialog& dialog, std::span<const std::uint8_t> bytes) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), dialog.left));
    const std::size_t room = FAKE_REQUEST_MAX + 2 - std::min(dialog.data.size(), FAKE_REQUEST_MAX);
    const auto kept = bytes.first(std::min(count, room));
    if (dialog.phase == Phase::Data) {
        dialog.data.insert(dialog.data.end(), kept.begin(), kept.end());
    }
    dialog.left -= count;
    return count;
}

void end_data(FakeDialog& dialog, FakeReply& reply) {
    if (dialog.phase == Phase::Data) {
        end(dialog, reply, true, text_count(dialog.data.size(), "byte"));
        return;
    }
    dialog.records++;
    dialog.phase = Phase::Number;
    put(dialog.out, "\x01\xAC\x0F"); // the next one
}

std::size_t take_some(FakeDialog& dialog, const Protocol& protocol,
                      std::span<const std::uint8_t> bytes, FakeReply& reply) {
    switch (dialog.phase) {
    case Phase::Status:
        take_status(dialog, protocol, bytes[0], reply);
        return 1;
    case Phase::Number:
        dialog.number.push_back(bytes[0]);
        if (dialog.number.size() == (protocol.big ? 4U : 2U)) {
            take_number(dialog, protocol, reply);
        }
        return 1;
    case Phase::Answer:
        dialog.data.push_back(bytes[0]);
        return dialog.data.size() < FAKE_REQUEST_MAX ? 1 : bytes.size();
    default:
        return take_data(dialog, bytes);
    }
}

bool read_hex(std::istringstream& words, Bytes& bytes) {
    for (std::string word; words >> word;) {
        std::size_t used = 0;
        const bool hex = word.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        const unsigned long value = hex && word.size() < 3 ? std::stoul(word, &used, 16) : 256;
        if (value > 255 || bytes.size() == FAKE_REQUEST_MAX) {
            return false;
        }
        bytes.push_back(static_cast<std::uint8_t>(value));
    }
    return !bytes.empty();
}

bool read_size(std::istringstream& words, std::uint32_t& bytes) {
    std::string word;
    if (!(words >> word)) {
        return true;
    }
    if (word.find_first_not_of("0123456789") != std::string::npos || word.size() > 5) {
        return false;
    }
    bytes = static_cast<std::uint32_t>(std::stoul(word));
    return bytes <= FAKE_REQUEST_MAX && !(words >> word);
}

} // namespace

bool fake_request_parse(const std::string& text, FakeRequest& request, std::string& problem) {
    request = {};
    request.text = text;
    std::istringstream words(text);
    words >> request.verb;
    if (request.verb == "raw") {
        problem = "bytes in hexadecimal are missing or wrong, as in 'raw 02 03 41 0D'";
        return read_hex(words, request.raw);
    }
    if (request.verb == "dir") {
        problem = "'dir' takes no name";
        return !(words >> request.name);
    }
    problem = "'load NAME', 'save NAME [BYTES]', 'dir', 'cd NAME' or 'raw HEX...' is expected";
    if ((request.verb != "load" && request.verb != "save" && request.verb != "cd") ||
        !(words >> request.name)) {
        return false;
    }
    problem = request.verb == "save" ? "0 to 65535 bytes can be saved" : "one name is expected";
    std::string more;
    return request.verb == "save" ? read_size(words, request.bytes) : !(words >> more);
}

void fake_dialog_begin(FakeDialog& dialog, int fileserver, const FakeRequest& request,
                       std::vector<std::uint8_t> saved, FakeReply& reply) {
    dialog = {};
    reply = {};
    dialog.request = request;
    dialog.fileserver = fileserver;
    dialog.saved = std::move(saved);
    dialog.heard = Clock::now();
    if (request.verb == "raw") {
        dialog.out = request.raw;
        dialog.phase = Phase::Answer;
        return;
    }
    if (!put_request(fileserver, request, dialog.saved.size(), dialog.out)) {
        end(dialog, reply, false, "there is no fileserver to ask");
        return;
    }
    const bool result =
        fileserver == FILESERVER_GENERIC && (request.verb == "cd" || request.verb == "dir");
    dialog.phase = result ? Phase::Number : Phase::Status;
}

std::size_t fake_dialog_take(FakeDialog& dialog, std::span<const std::uint8_t> bytes,
                             FakeReply& reply) {
    const Protocol* protocol = find_protocol(dialog.fileserver);
    const Protocol& spoken = protocol != nullptr ? *protocol : protocols[0];
    std::size_t done = 0;
    while (fake_dialog_is_on(dialog)) {
        const bool data = dialog.phase == Phase::Data || dialog.phase == Phase::Record;
        if (data && dialog.left == 0) {
            end_data(dialog, reply);
        } else if (done < bytes.size()) {
            done += take_some(dialog, spoken, bytes.subspan(done), reply);
            dialog.heard = Clock::now();
        } else {
            break;
        }
    }
    return done;
}

void fake_dialog_tick(FakeDialog& dialog, FakeReply& reply) {
    const auto silence = Clock::now() - dialog.heard;
    if (dialog.phase == Phase::Answer && silence > PAUSE) {
        const std::size_t shown = std::min<std::size_t>(dialog.data.size(), 16);
        const std::string hex = text_hex(std::span(dialog.data).first(shown));
        const std::size_t size = dialog.data.size();
        end(dialog, reply, true,
            text_count(size, "byte") + " in answer" + (size > 0 ? ": " : "") + hex +
                (size > shown ? " ..." : ""));
        reply.data.clear(); // no file
    } else if (fake_dialog_is_on(dialog) && silence > PATIENCE) {
        end(dialog, reply, false,
            dialog.left > 0
                ? "the host fell silent, " + text_count(dialog.left, "byte") + " missing"
                : "no answer");
        reply.data.clear();
    }
}

} // namespace kx
