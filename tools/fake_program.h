// What the program on a pretended target asks of the host's fileserver, in the three protocols.
// The target hands it the bytes that come and sends what it leaves in `out`.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kx {

constexpr std::size_t FAKE_REQUEST_MAX = 65535; // bytes of a save, or of a raw request

/// One request: `load NAME`, `save NAME [BYTES]`, `dir`, `cd NAME` or `raw HEX...`.
struct FakeRequest {
    std::string text; // as given
    std::string verb;
    std::string name;
    std::uint32_t bytes = 256;     // to save
    std::vector<std::uint8_t> raw; // to send
};

/// Reads a request from its text. False, and what is wrong with it in `problem`.
bool fake_request_parse(const std::string& text, FakeRequest& request, std::string& problem);

/// What has become of a request.
struct FakeReply {
    bool ended = false;
    bool ok = false;
    std::string words;              // "10138 bytes", "refused"
    std::vector<std::uint8_t> data; // what was loaded
};

/// A request under way; one at a time.
struct FakeDialog {
    enum class Phase { Nothing, Status, Number, Data, Record, Answer };
    Phase phase = Phase::Nothing;
    FakeRequest request;
    int fileserver = 0;
    std::vector<std::uint8_t> number;
    std::uint64_t left = 0;         // bytes of data to come
    std::uint32_t records = 0;      // of a directory
    std::vector<std::uint8_t> data; // that have come
    std::vector<std::uint8_t> saved;
    std::vector<std::uint8_t> out; // to be sent; the target takes it
    std::chrono::steady_clock::time_point heard;
};

/// Begins a request in the protocol of that fileserver (of the registry). `saved` are the bytes
/// that a save sends. A request that the protocol does not have ends at once.
void fake_dialog_begin(FakeDialog& dialog, int fileserver, const FakeRequest& request,
                       std::vector<std::uint8_t> saved, FakeReply& reply);

/// Takes bytes of the host, as many as belong to the request: the number of them.
std::size_t fake_dialog_take(FakeDialog& dialog, std::span<const std::uint8_t> bytes,
                             FakeReply& reply);

/// Ends a request that the host has left unanswered for too long, and a raw one after a pause.
void fake_dialog_tick(FakeDialog& dialog, FakeReply& reply);

inline bool fake_dialog_is_on(const FakeDialog& dialog) {
    return dialog.phase != FakeDialog::Phase::Nothing;
}

} // namespace kx
