#include "cli/plaintext.h"

#include "cli/print.h"
#include "mirrowen/util/str_format.h"

namespace cli {

bool MayTalkPlainly(std::string_view verb, bool plaintext) {
    if (!plaintext) {
        PrintNote(util::str_format("%1 at a receiving agent needs --plaintext: encrypted connections are not there yet",
                                   verb));
    }
    return plaintext;
}

}  // namespace cli
