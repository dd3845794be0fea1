// Any bytes taken as a search mask and a name, with a line break between them: the mask compiles and answers, or is
// refused with an exception; a mask that is just a name matches it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "mirrowen/util/str.h"
#include "tarn/lindir/search_mask.h"

namespace {

/// Characters that stand for themselves in a mask.
bool IsPlain(const std::string& text) {
    return text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-$^[]") ==
           std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t end = text.find('\n');
    const std::string mask = text.substr(0, end);
    // Alternatives and stars of a mask backtrack, as in any such engine: long names would only be slow.
    const std::string name = end == std::string::npos ? std::string() : text.substr(end + 1, 64);
    if (mask.size() > 64) {
        return 0;
    }
    try {
        const auto compiled = tarn::lindir::search_mask_t::FromWildcards(util::str_utf82w(mask));
        if (compiled) {
            static_cast<void>(compiled->Matches(name));
            if (IsPlain(mask) && !compiled->Matches(mask)) {
                std::abort();
            }
        }
    } catch (const std::exception&) {  // an expression that cannot be compiled
    }
    return 0;
}
