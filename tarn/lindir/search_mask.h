#pragma once

#include <memory>
#include <string>

#include "tarn/export.h"

namespace tarn::lindir {

/// A compiled search mask: what `lin_dir_enum::GenerateNewRegexMask` made of a wildcard mask, as a regular expression.
/// Any thread.
class TARN_API search_mask_t {
  public:
    /// Throws `boost::xpressive::regex_error`, a `std::exception`, for an expression that cannot be compiled: the
    /// translation leaves "(", ")", "|", "+" and the backslash as they are.
    explicit search_mask_t(const std::string& expression);
    ~search_mask_t();
    search_mask_t(const search_mask_t&) = delete;
    search_mask_t& operator=(const search_mask_t&) = delete;

    /// Whether the whole of `name`, bytes, matches when it is put in lower case as the mask was. A "?" stands for one
    /// byte.
    bool Matches(const std::string& name) const;

    /// What a walk filters names with: `mask` in lower case, translated and compiled; empty when every name passes.
    /// Throws as the constructor.
    static std::shared_ptr<const search_mask_t> FromWildcards(const std::wstring& mask);

  private:
    struct expression_t;
    std::unique_ptr<const expression_t> expression_;
};

}  // namespace tarn::lindir
