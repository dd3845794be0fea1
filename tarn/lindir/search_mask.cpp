#include "tarn/lindir/search_mask.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/xpressive/xpressive_dynamic.hpp>

#include "mirrowen/util/str.h"
#include "tarn/lindir/lin_dir_enum.h"

namespace tarn::lindir {

namespace {

std::string ToLower(const std::wstring& text) {
    return util::str_w2utf8(boost::algorithm::to_lower_copy(text));
}

}  // namespace

struct search_mask_t::expression_t {
    boost::xpressive::sregex regex;
};

search_mask_t::search_mask_t(const std::string& expression)
    : expression_(std::make_unique<const expression_t>(expression_t{boost::xpressive::sregex::compile(expression)})) {}

search_mask_t::~search_mask_t() = default;

bool search_mask_t::Matches(const std::string& name) const {
    return boost::xpressive::regex_match(ToLower(util::str_utf82w(name)), expression_->regex);
}

std::shared_ptr<const search_mask_t> search_mask_t::FromWildcards(const std::wstring& mask) {
    std::string translated = ToLower(mask);
    if (!lin_dir_enum::GenerateNewRegexMask(translated)) {
        return nullptr;
    }
    return std::make_shared<const search_mask_t>(translated);
}

}  // namespace tarn::lindir
