#include "tests/support/caught_error.h"

#include <ostream>
#include <typeinfo>

#include "mirrowen/exc/exception.h"
#include "mirrowen/util/type_name.h"

namespace tests {

caught_error_t DescribeError(const std::exception_ptr& error) {
    caught_error_t caught;
    if (!error) {
        return caught;
    }
    caught.thrown = true;
    caught.error = error;
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        caught.type = util::detail::readable_name(typeid(exception));
        caught.message = exc::MessageOf(exception);
        caught.what = exception.what();
        if (const auto* const own = dynamic_cast<const exc::CException*>(&exception); own && own->Cause()) {
            const caught_error_t cause = DescribeError(own->Cause());
            caught.causes = cause.causes;
            caught.causes.insert(caught.causes.begin(), cause.message);
            caught.causeTypes = cause.causeTypes;
            caught.causeTypes.insert(caught.causeTypes.begin(), cause.type);
        }
    } catch (...) {
        caught.type = "not a std::exception";
    }
    return caught;
}

caught_error_t CatchError(const std::function<void()>& call) {
    try {
        call();
    } catch (...) {
        return DescribeError(std::current_exception());
    }
    return {};
}

void PrintTo(const caught_error_t& caught, std::ostream* out) {
    if (caught.thrown) {
        *out << caught.type << " \"" << caught.what << '"';
    } else {
        *out << "nothing thrown";
    }
}

}  // namespace tests
