// SPDX-License-Identifier: Apache-2.0
#include <android-base/thread_annotations.h>
#include <host/platform/Faults.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>
#include <string_view>
#include <utility>

namespace qoz::host {
namespace {

// An armed fault with the number of calls of its operation since it was armed.
struct Armed {
    Fault fault;
    uint64_t calls = 0;
    bool fired = false;
};

// The names that the text of a fault may contain as its operation.
constexpr std::string_view kOperations[] = {"getNewVppSession",
                                            "initSession",
                                            "terminateSession",
                                            "setCtrlVppMode",
                                            "setCtrlFrc",
                                            "setCtrlAis",
                                            "setParameter",
                                            "open",
                                            "close",
                                            "queueBuf",
                                            "flush",
                                            "reconfigure",
                                            "drain",
                                            "inputBufferDone",
                                            "outputBufferDone",
                                            "eventFlushDone",
                                            "eventDrainDone",
                                            "eventReconfigDone",
                                            "eventError",
                                            "Configure",
                                            "RGBToNV12",
                                            "MvBufferGeneration",
                                            "GetMVbufferSize",
                                            "allocate",
                                            "native_handle_create"};

// The armed faults in the order in which they were armed. `fired` is the total since the last
// clearFaults().
struct Table {
    std::mutex lock;
    std::vector<Armed> rows GUARDED_BY(lock);
    uint64_t fired GUARDED_BY(lock) = 0;
};

// Never destroyed, because detached threads may still call takeFault() when the process exits.
Table& table() {
    static auto* instance = new Table;
    return *instance;
}

// Whether any fault is armed. The accesses are relaxed, because the table is read under its lock.
std::atomic<bool> gAnyArmed{false};

// Returns whether the fault fires at the call that `row.calls` has just counted.
bool firesNow(const Armed& row) {
    if (row.calls < row.fault.nth) return false;
    return row.fault.count == 0 || row.calls < row.fault.nth + row.fault.count;
}

// A kind of fault and the word for it in the text of a fault.
using Word = std::pair<std::string_view, FaultKind>;

constexpr Word kWords[] = {{"drop", FaultKind::Drop},     {"late", FaultKind::Late},
                           {"twice", FaultKind::Twice},   {"unknown", FaultKind::Unknown},
                           {"keep", FaultKind::Keep},     {"swap", FaultKind::Swap},
                           {"stray", FaultKind::Stray},   {"transport", FaultKind::Transport},
                           {"within", FaultKind::Within}, {"die", FaultKind::Die}};

bool hasNumber(FaultKind kind) {
    return kind == FaultKind::Late || kind == FaultKind::Keep;
}

template <typename Number>
bool parseNumber(std::string_view text, Number* number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size();
}

// Parses the answer of a fault, for example "7", "drop" or "late:500".
bool parseAnswer(std::string_view text, Fault* fault) {
    const auto colon = text.find(':');
    const auto* word =
        std::find_if(std::begin(kWords), std::end(kWords),
                     [name = text.substr(0, colon)](const Word& w) { return w.first == name; });
    if (word == std::end(kWords)) return parseNumber(text, &fault->code);
    fault->kind = word->second;
    if (!hasNumber(fault->kind)) return colon == std::string_view::npos;
    return colon != std::string_view::npos && parseNumber(text.substr(colon + 1), &fault->code) &&
           (fault->code >= 0 || fault->kind != FaultKind::Late);
}

// Parses the number of the call at which a fault fires, for example "3" or "3+".
bool parseWhen(std::string_view text, Fault* fault) {
    if (text.ends_with('+')) {
        fault->count = 0;
        text.remove_suffix(1);
    }
    return parseNumber(text, &fault->nth) && fault->nth > 0;
}

}  // namespace

// All faults of the operation count the call. If several fire at it, the first that was armed wins.
std::optional<Fault> takeFault(const char* operation) {
    if (!gAnyArmed.load(std::memory_order_relaxed)) return std::nullopt;
    Table& t = table();
    const std::lock_guard lock(t.lock);
    Armed* hit = nullptr;
    for (Armed& row : t.rows) {
        if (row.fault.operation != operation) continue;
        ++row.calls;
        if (hit == nullptr && firesNow(row)) hit = &row;
    }
    if (hit == nullptr) return std::nullopt;
    ++t.fired;
    hit->fired = true;
    return hit->fault;
}

std::optional<Fault> parseFault(const std::string& text, std::string* error) {
    const std::string_view view = text;
    const auto equals = view.find('=');
    const auto at = view.find('@');
    Fault fault;
    fault.operation = text.substr(0, equals);
    const bool good =
        equals != std::string_view::npos && equals > 0 &&
        parseAnswer(view.substr(equals + 1, at == std::string_view::npos ? at : at - equals - 1),
                    &fault) &&
        (at == std::string_view::npos || parseWhen(view.substr(at + 1), &fault));
    if (good && std::find(std::begin(kOperations), std::end(kOperations), fault.operation) ==
                    std::end(kOperations)) {
        *error = "no operation is called " + fault.operation;
        return std::nullopt;
    }
    if (good) return fault;
    *error = "not a fault: " + text +
             " (expected operation=answer, operation=answer@n or operation=answer@n+)";
    return std::nullopt;
}

std::string toText(const Fault& fault) {
    std::string text = fault.operation + '=';
    for (const auto& [word, kind] : kWords) {
        if (kind == fault.kind) text += word;
    }
    if (hasNumber(fault.kind)) text += ':';
    if (hasNumber(fault.kind) || fault.kind == FaultKind::Code) text += std::to_string(fault.code);
    return text + '@' + std::to_string(fault.nth) + (fault.count == 0 ? "+" : "");
}

void armFault(const Fault& fault) {
    Table& t = table();
    const std::lock_guard lock(t.lock);
    t.rows.push_back({fault});
    gAnyArmed.store(true, std::memory_order_relaxed);
}

void clearFaults() {
    Table& t = table();
    const std::lock_guard lock(t.lock);
    t.rows.clear();
    t.fired = 0;
    gAnyArmed.store(false, std::memory_order_relaxed);
}

std::vector<Fault> unfiredFaults() {
    Table& t = table();
    const std::lock_guard lock(t.lock);
    std::vector<Fault> unfired;
    for (const Armed& row : t.rows) {
        if (!row.fired) unfired.push_back(row.fault);
    }
    return unfired;
}

uint64_t faultsFired() {
    Table& t = table();
    const std::lock_guard lock(t.lock);
    return t.fired;
}

}  // namespace qoz::host
