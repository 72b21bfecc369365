#pragma once

namespace varnex::test
{

// Makes one array allocation by `new (std::nothrow)` fail: the nCall-th of this program from here on (1 is the next).
// It leaves ERROR_NOT_ENOUGH_MEMORY as the last error. One at a time, for one thread.
class ArrayFailure
{
public:
    explicit ArrayFailure(unsigned nCall);
    ~ArrayFailure();
    ArrayFailure(const ArrayFailure&) = delete;
    ArrayFailure& operator=(const ArrayFailure&) = delete;

    // Whether that allocation was asked for.
    bool IsMet() const;
};

} // namespace varnex::test
