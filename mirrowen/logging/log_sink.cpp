#include "mirrowen/logging/log_sink.h"

#include <atomic>
#include <utility>

#include "mirrowen/logging/sink_holder.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/str.h"

namespace logging {

namespace {

constinit std::atomic<ELevel> g_threshold{ELevel::eWarn};

struct sink_slot_t {
    synch::mutex_t mutex;
    std::shared_ptr<ILogSink> sink GUARDED_BY(mutex) = MakeStderrSink();
};

// Never destroyed: destructors that run at exit still log.
sink_slot_t& slot() {
    static auto* const instance = new sink_slot_t;
    return *instance;
}

void AppendHex(unsigned byte, std::string& out) {
    static constexpr char digits[] = "0123456789abcdef";
    out += "\\x";
    out += digits[byte >> 4 & 0x0fU];
    out += digits[byte & 0x0fU];
}

}  // namespace

ILogSink::~ILogSink() = default;

std::shared_ptr<ILogSink> CurrentSink() {
    sink_slot_t& current = slot();
    const synch::lock_t lock(current.mutex);
    return current.sink;
}

std::shared_ptr<ILogSink> SetSink(std::shared_ptr<ILogSink> sink) {
    if (!sink) {
        sink = MakeStderrSink();
    }
    sink_slot_t& current = slot();
    const synch::lock_t lock(current.mutex);
    return std::exchange(current.sink, std::move(sink));
}

void SetThreshold(ELevel threshold) noexcept {
    g_threshold.store(threshold, std::memory_order_relaxed);
}

ELevel GetThreshold() noexcept {
    return g_threshold.load(std::memory_order_relaxed);
}

std::string EscapeControls(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const wchar_t c : util::str_utf82w(text)) {
        const auto code = static_cast<char32_t>(c);
        if (c == L'\n') {
            out += "\\n";
        } else if (code < 0x20 || code == 0x7f) {
            AppendHex(code, out);
        } else if (code >= 0x80 && code < 0xa0) {  // two bytes in UTF-8
            AppendHex(0xc2, out);
            AppendHex(code, out);
        } else if (code >= 0xdc80 && code <= 0xdcff) {  // a byte that is not UTF-8, as it is carried
            AppendHex(code - 0xdc00, out);
        } else {
            out += util::str_w2utf8(std::wstring_view(&c, 1));
        }
    }
    return out;
}

}  // namespace logging
