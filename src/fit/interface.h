#pragma once

#include <cfenv>
#include <exception>
#include <new>
#include <string>

#include "fit/failure.h"
#include "fit/model.h"
#include "fit/watch.h"
#include "vemkn.h"
#include "vemkn_fit.h"

// What a handle of the C interface points to.
struct VEMKNFit {
    explicit VEMKNFit(vemknfit::Model of) : model(std::move(of)), network(model.network()) {}

    vemknfit::Model model;
    vemkn::Network network;
};

namespace vemknfit {

// Computes with the usual arithmetic, without traps; what the host had set comes back at the end.
class HostArithmetic {
public:
    HostArithmetic()
    {
        std::fegetenv(&found_);
        std::fesetenv(FE_DFL_ENV);
    }

    ~HostArithmetic() { std::fesetenv(&found_); }

    HostArithmetic(const HostArithmetic&) = delete;
    HostArithmetic& operator=(const HostArithmetic&) = delete;

private:
    std::fenv_t found_;
};

// Of the calling thread; cut where it is too long.
void set_message(const char* text, std::int64_t row = Failure::NO_ROW) noexcept;

// The body of every call that can fail: no exception leaves it, and the message is that of this call.
template <class Work>
int guarded(const Work& work) noexcept
{
    const HostArithmetic host;
    const auto failed = [](int code, const char* text) {
        set_message(text);
        return code;
    };
    set_message("");
    try {
        vemk_nobanner();
        work();
        return VEMKN_FIT_OK;
    } catch (const Failure& failure) {
        set_message(failure.what(), failure.row());
        return failure.code();
    } catch (const Cancelled& cancelled) {
        return failed(VEMKN_FIT_CANCELLED, cancelled.what());
    } catch (const std::bad_alloc&) {
        return failed(VEMKN_FIT_MEMORY, "there is not enough memory");
    } catch (const std::exception& error) {
        return failed(VEMKN_FIT_INTERNAL, error.what());
    } catch (...) {
        return failed(VEMKN_FIT_INTERNAL, "an unknown exception");
    }
}

// Throws a Failure with VEMKN_FIT_ARGUMENT.
[[noreturn]] void wrong(const std::string& what);

// What a caller hands over, row by row; no more of it than can be taken.
Matrix matrix_of(const double* numbers, std::size_t rows, std::size_t columns);

// Throws a Failure that names the argument where it is null.
void check_given(const void* pointer, const char* argument);

}  // namespace vemknfit
