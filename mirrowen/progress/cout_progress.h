#pragma once

#include <cstdint>

#include "mirrowen/io/in_out.h"
#include "mirrowen/progress/progress_base.h"

namespace progress {

/// Prints the percentage done on a console, one line rewritten in place, whenever the whole percent changes.
class MIRROWEN_API cout_progress_t final : public progress_base_t {
  public:
    /// `size`: bytes expected (0: unknown, a count of bytes is printed instead). `newLineAtEnd`: whether the destructor
    /// ends the line. `console` must outlive this object.
    cout_progress_t(std::uint64_t size, bool newLineAtEnd, io::IInOut& console);
    ~cout_progress_t() override;

    void OnProgress(std::uint64_t bytes) override;

  private:
    std::uint64_t size_;
    bool newLineAtEnd_;
    io::IInOut& console_;
    std::uint64_t done_ = 0;
    std::uint64_t shown_ = ~std::uint64_t{0};
};

}  // namespace progress
