// The stub's commands in one table, the failures, and the loop that joins line, stub and program.
#include "tools/fake_target.h"

#include "link/image.h"
#include "util/text.h"

#include <algorithm>

namespace kx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t PIECE = 4096;          // bytes in hand at a time
constexpr std::size_t UNKNOWN_MAX = 16;      // bytes that are no command, told at a time
constexpr std::size_t UNASKED_MAX = 1 << 18; // bytes waiting to be sent: a save and an answer
constexpr auto HOST_SILENCE = std::chrono::milliseconds(500);
constexpr auto START_SILENCE = std::chrono::milliseconds(100); // of one that has started it
constexpr auto REPLUG_TIME = std::chrono::seconds(1);

std::uint64_t memory_size(const FakeTarget& target) {
    return std::uint64_t{1} << target.settings.addr_bits;
}

std::size_t argument_size(const FakeTarget& target) {
    return static_cast<std::size_t>(target.settings.addr_bits + 7) / 8;
}

std::uint32_t argument(const FakeTarget& target, std::size_t index) {
    const std::size_t size = argument_size(target);
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | target.command.head[2 + index * size + i];
    }
    return value;
}

void tell(const FakeTarget& target, const FakeEvent& event) {
    if (target.tell) {
        target.tell(event);
    }
}

bool fails(const FakeTarget& target, FakeFailure failure) {
    return target.settings.failure == failure &&
           target.line.crossed >= target.settings.failure_after;
}

// Commands -------------------------------------------------------------------------------------

std::string address_text(const FakeTarget& target, std::uint64_t address) {
    return text_printf("$%0*llX", static_cast<int>(2 * argument_size(target)),
                       static_cast<unsigned long long>(address % memory_size(target)));
}

// `B` and `C`: exactly end - start bytes, the whole address space when they are the same.
void begin_memory(FakeTarget& target) {
    const std::uint64_t size = memory_size(target);
    const std::uint64_t start = argument(target, 1) % size;
    const std::uint64_t length = (argument(target, 0) + size - start) % size;
    target.command.at = start;
    target.command.length = length == 0 ? size : length;
}

std::string memory_words(const FakeTarget& target, const char* verb) {
    const std::uint64_t start = argument(target, 1);
    const std::uint64_t length = target.command.length;
    const std::string last = length > 1 ? "-" + address_text(target, start + length - 1) : "";
    return text_printf("%-6s %s%s  %s", verb, address_text(target, start).c_str(), last.c_str(),
                       text_count(length, "byte").c_str());
}

// `L` and `M`: a place that no disc has is one behind its end.
void begin_image(FakeTarget& target) {
    const auto track = static_cast<int>(std::min(argument(target, 0), 99U));
    const std::uint64_t before = static_cast<std::uint64_t>(d64_sectors_before(track));
    const std::uint64_t sector = argument(target, 1);
    const bool there =
        track >= 1 && sector < static_cast<std::uint64_t>(std::max(
                                   d64_sectors_before(track + 1) - d64_sectors_before(track), 0));
    target.command.at = there ? (before + sector) * 256 + argument(target, 2)
                              : static_cast<std::uint64_t>(IMAGE_HELD_LIMIT);
    target.command.length = argument(target, 3);
}

std::string image_words(const FakeTarget& target, const char* verb) {
    return text_printf("%-6s block %u/%u from byte %u  %s", verb, argument(target, 0),
                       argument(target, 1), argument(target, 2),
                       text_count(target.command.length, "byte").c_str());
}

void set_pc(FakeTarget& target) {
    target.pc = argument(target, 0);
}

std::string pc_words(const FakeTarget& target, const char* verb) {
    return text_printf("%-6s %s", verb, address_text(target, target.pc).c_str());
}

void execute(FakeTarget& target) {
    target.runs++;
    target.next_request = 0;
    target.running = target.starting = true;
    target.quiet_since = Clock::now();
}

struct Row {
    std::uint8_t letter;
    std::size_t arguments;
    const char* verb;
    bool writes; // data follow
    bool reads;  // is answered
    bool image;
    void (*begin)(FakeTarget& target); // once its head is there
    std::string (*words)(const FakeTarget& target, const char* verb);
};
constexpr Row rows[] = {
    {'B', 2, "write", true, false, false, begin_memory, memory_words},
    {'C', 2, "read", false, true, false, begin_memory, memory_words},
    {'D', 1, "pc", false, false, false, set_pc, pc_words},
    {'K', 0, "run", false, false, false, execute, pc_words},
    {'L', 4, "write", true, false, true, begin_image, image_words},
    {'M', 4, "read", false, true, true, begin_image, image_words},
};

const Row* find_row(std::uint8_t letter) {
    const Row* row = std::ranges::find(rows, letter, &Row::letter);
    return row != std::end(rows) ? row : nullptr;
}

const Row* current_row(const FakeTarget& target) {
    return target.command.head.size() >= 2 ? find_row(target.command.head[1]) : nullptr;
}

void tell_command(const FakeTarget& target, bool whole) {
    if (!target.tell) {
        return;
    }
    const FakeCommand& command = target.command;
    const Row& row = *current_row(target);
    std::string words = row.words(target, row.verb);
    if (!whole) {
        words += text_printf(", cut off: %s missing", text_count(command.left, "byte").c_str());
    }
    tell(target, {.kind = "command",
                  .words = words,
                  .hex = text_hex(command.head),
                  .ok = whole,
                  .bytes = command.length - command.left});
}

void tell_unknown(FakeTarget& target) {
    if (!target.unknown.empty()) {
        tell(target, {.kind = "unknown",
                      .words = "no command",
                      .hex = text_hex(target.unknown),
                      .ok = false,
                      .bytes = target.unknown.size()});
        target.unknown.clear();
    }
}

void take_unknown(FakeTarget& target, std::uint8_t byte) {
    target.unknown.push_back(byte);
    if (target.unknown.size() == UNKNOWN_MAX) {
        tell_unknown(target);
    }
}

// Where the next bytes of data are, at most `count` and up to the last address, behind which
// memory begins again; none behind the end of the disc.
std::span<std::uint8_t> find_bytes(FakeTarget& target, std::uint64_t count) {
    std::vector<std::uint8_t>& held = target.command.image ? target.image : target.memory;
    const std::uint64_t at =
        target.command.image ? target.command.at : target.command.at % held.size();
    return at < held.size() ? std::span(held).subspan(at, std::min(count, held.size() - at))
                            : std::span<std::uint8_t>();
}

void begin_answer(FakeTarget& target) {
    FakeCommand& command = target.command;
    command.answer_left = fails(target, FakeFailure::Silent) ? 0 : command.length;
    if (fails(target, FakeFailure::Short) && command.answer_left > 0) {
        command.answer_left--;
    }
    command.surplus = fails(target, FakeFailure::Surplus);
}

void end_command(FakeTarget& target) {
    tell_command(target, true);
    if (target.command.answer_left == 0 && !target.command.surplus) {
        target.command = {};
    }
}

void begin_command(FakeTarget& target, const Row& row) {
    FakeCommand& command = target.command;
    tell_unknown(target);
    row.begin(target);
    command.image = row.image;
    command.left = row.writes ? command.length : 0;
    if (row.reads) {
        begin_answer(target);
    }
    if (command.left == 0) {
        end_command(target);
    }
}

// One byte of a command's head.
void take_head(FakeTarget& target, std::uint8_t byte) {
    std::vector<std::uint8_t>& head = target.command.head;
    head.push_back(byte);
    const Row* row = current_row(target);
    if (head.size() == 1 && byte != 'A') {
        head.clear();
        take_unknown(target, byte);
    } else if (head.size() == 2 && row == nullptr) {
        head.clear();
        take_unknown(target, 'A');
        take_head(target, byte); // it may be the A of the next one
    } else if (row != nullptr && head.size() == 2 + row->arguments * argument_size(target)) {
        begin_command(target, *row);
    }
}

std::size_t take_data(FakeTarget& target, std::span<const std::uint8_t> bytes) {
    FakeCommand& command = target.command;
    const std::uint64_t count = std::min<std::uint64_t>(bytes.size(), command.left);
    const std::span<std::uint8_t> to = find_bytes(target, count);
    if (!fails(target, FakeFailure::Rom)) {
        std::copy_n(bytes.begin(), to.size(), to.begin());
    }
    const std::uint64_t taken = to.empty() ? count : to.size();
    command.at += taken;
    command.left -= taken;
    if (command.left == 0) {
        end_command(target);
    }
    return static_cast<std::size_t>(taken);
}

bool is_answering(const FakeTarget& target) {
    return target.command.answer_left > 0 || target.command.surplus;
}

// The next piece of an answer.
void answer(FakeTarget& target) {
    FakeCommand& command = target.command;
    while (command.answer_left > 0 && target.out.size() < PIECE) {
        const std::uint64_t count = std::min(command.answer_left, PIECE - target.out.size());
        const std::span<std::uint8_t> from = find_bytes(target, count);
        target.out.insert(target.out.end(), from.begin(), from.end());
        const std::uint64_t given = from.empty() ? count : from.size();
        target.out.resize(target.out.size() + given - from.size());
        command.at += given;
        command.answer_left -= given;
    }
    if (command.answer_left == 0) {
        if (command.surplus) {
            target.out.push_back(0);
        }
        command = {};
    }
}

// The program ------------------------------------------------------------------------------------

// A loaded program goes where its first two bytes say, as far as memory goes.
void store_loaded(FakeTarget& target, const FakeRequest& request,
                  const std::vector<std::uint8_t>& data, std::string& words) {
    if (request.verb != "load" || data.size() < 3) {
        return;
    }
    const std::uint64_t start = data[0] | static_cast<std::uint64_t>(data[1]) << 8;
    const std::uint64_t size = memory_size(target);
    for (std::size_t i = 2; i < data.size(); i++) {
        target.memory[(start + i - 2) % size] = data[i];
    }
    words += " to " + address_text(target, start);
}

void end_request(FakeTarget& target, FakeReply& reply) {
    const FakeRequest& request = target.dialog.request;
    store_loaded(target, request, reply.data, reply.words);
    tell(target, {.kind = "request",
                  .words = request.text + ": " + reply.words,
                  .hex = "",
                  .ok = reply.ok,
                  .bytes = reply.data.size()});
}

// What a save sends: memory from where programs begin.
std::vector<std::uint8_t> saved_bytes(const FakeTarget& target, std::size_t count) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < count; i++) {
        bytes.push_back(target.memory[(0x0801 + i) % memory_size(target)]);
    }
    return bytes;
}

void begin_request(FakeTarget& target) {
    const FakeRequest& request = target.settings.requests[target.next_request++];
    FakeReply reply;
    fake_dialog_begin(target.dialog, target.settings.fileserver, request,
                      saved_bytes(target, request.verb == "save" ? request.bytes : 0), reply);
    if (reply.ended) {
        end_request(target, reply);
    }
}

// A host that has opened the line and says nothing waits for requests.
bool host_waits(FakeTarget& target) {
    const auto now = Clock::now();
    if (!fake_line_has_host(target.line)) {
        target.quiet_since = now;
    }
    return now - target.quiet_since >= (target.running ? START_SILENCE : HOST_SILENCE);
}

// What the program says goes out before it says more.
void send_dialog(FakeTarget& target) {
    target.out.insert(target.out.end(), target.dialog.out.begin(), target.dialog.out.end());
    target.dialog.out.clear();
}

void run_program(FakeTarget& target) {
    send_dialog(target);
    if (fake_dialog_is_on(target.dialog)) {
        FakeReply reply;
        fake_dialog_tick(target.dialog, reply);
        if (reply.ended) {
            end_request(target, reply);
        }
    } else if (target.next_request < target.settings.requests.size() && target.out.empty()) {
        if ((target.running && !target.starting) || host_waits(target)) {
            target.running = true;
            target.starting = false;
            begin_request(target);
        }
    }
    send_dialog(target);
}

// The loop ---------------------------------------------------------------------------------------

std::size_t take_some(FakeTarget& target, std::span<const std::uint8_t> bytes) {
    if (fake_dialog_is_on(target.dialog)) {
        FakeReply reply;
        const std::size_t count = fake_dialog_take(target.dialog, bytes, reply);
        if (reply.ended) {
            end_request(target, reply);
        }
        return count;
    }
    if (target.command.left > 0) {
        return take_data(target, bytes);
    }
    take_head(target, bytes[0]);
    return 1;
}

// Commands are carried out one after the other: while one is answered, the next waits.
void take_input(FakeTarget& target) {
    std::size_t done = 0;
    while (done < target.input.size() && !is_answering(target) && target.out.size() < UNASKED_MAX) {
        done += take_some(target, std::span(target.input).subspan(done));
        run_program(target);
    }
    target.input.erase(target.input.begin(),
                       target.input.begin() + static_cast<std::ptrdiff_t>(done));
}

// How many bytes may cross the line before it is to fail.
std::size_t until_failure(const FakeTarget& target, std::size_t bytes) {
    const FakeSettings& settings = target.settings;
    if (settings.failure < FakeFailure::Stuck) {
        return bytes;
    }
    const std::uint64_t left =
        settings.failure_after - std::min(settings.failure_after, target.line.crossed);
    return target.failed ? bytes : static_cast<std::size_t>(std::min<std::uint64_t>(bytes, left));
}

void read_line(FakeTarget& target) {
    if (!target.input.empty() || fails(target, FakeFailure::Stuck)) {
        return;
    }
    target.input.resize(PIECE);
    const auto room = std::span(target.input).first(until_failure(target, PIECE));
    target.input.resize(fake_line_read(target.line, room));
    if (!target.input.empty()) {
        target.quiet_since = Clock::now();
    } else {
        tell_unknown(target);
    }
}

void write_line(FakeTarget& target) {
    const std::size_t size = until_failure(target, target.out.size());
    const std::size_t sent = fake_line_write(target.line, std::span(target.out).first(size));
    target.out.erase(target.out.begin(), target.out.begin() + static_cast<std::ptrdiff_t>(sent));
}

// What was under way when the line went.
void drop_all(FakeTarget& target) {
    if (target.command.left > 0) {
        tell_command(target, false);
    }
    tell_unknown(target);
    target.command = {};
    target.dialog = {};
    target.input.clear();
    target.out.clear();
}

void fail_line(FakeTarget& target) {
    const bool goes = fails(target, FakeFailure::Hangup) || fails(target, FakeFailure::Replug);
    if (target.failed || (!goes && !fails(target, FakeFailure::Stuck))) {
        return;
    }
    target.failed = true;
    target.failed_at = Clock::now();
    if (!goes) {
        fake_line_stop(target.line);
        tell(target, {.kind = "line", .words = "takes no more bytes", .hex = "", .ok = false});
        return;
    }
    drop_all(target);
    tell(target, {.kind = "line", .words = "hung up", .hex = "", .ok = false});
    fake_line_close(target.line);
}

void replug(FakeTarget& target) {
    const bool due = Clock::now() - target.failed_at >= REPLUG_TIME;
    const std::uint64_t crossed = target.line.crossed;
    if (target.settings.failure == FakeFailure::Replug && due &&
        fake_line_open(target.line, target.settings.baud) == 0) {
        target.line.crossed = crossed;
        target.running = false; // nobody hears a request before a host has opened the line again
        target.quiet_since = Clock::now();
        tell(target, {.kind = "line", .words = target.line.device, .hex = ""});
    }
}

} // namespace

int fake_open(FakeTarget& target, const FakeSettings& settings) {
    auto teller = std::move(target.tell);
    target = {};
    target.tell = std::move(teller);
    target.settings = settings;
    target.memory.resize(memory_size(target));
    target.image.resize(static_cast<std::size_t>(IMAGE_HELD_LIMIT));
    target.quiet_since = Clock::now();
    const int result = fake_line_open(target.line, settings.baud);
    if (result == 0) {
        fail_line(target); // it may be that nothing works from the start
    }
    return result;
}

void fake_step(FakeTarget& target, int milliseconds, int other_fd) {
    const bool writes = !target.out.empty() || is_answering(target);
    const bool reads = target.input.empty() && !fails(target, FakeFailure::Stuck);
    fake_line_wait(target.line, reads, writes, milliseconds, other_fd);
    if (!target.line.master.is_open()) {
        replug(target);
        return;
    }
    read_line(target);
    take_input(target);
    run_program(target);
    if (is_answering(target) && target.out.empty()) {
        answer(target);
    }
    write_line(target);
    fail_line(target);
}

bool fake_is_done(const FakeTarget& target) {
    return target.next_request == target.settings.requests.size() &&
           !fake_dialog_is_on(target.dialog) && target.out.empty();
}

void fake_close(FakeTarget& target) {
    drop_all(target);
    fake_line_close(target.line);
}

} // namespace kx
