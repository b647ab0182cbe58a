#include "watch.h"

namespace {

/// Short enough that Ctrl-C seems to act at once, and long enough that waiting for the interpreter lock costs little time.
constexpr std::chrono::milliseconds interval(10);

/// Python runs signal handlers on the main thread only.
bool isOnMainThread()
{
    const nb::module_ threading = nb::module_::import_("threading");
    return threading.attr("get_ident")().equal(threading.attr("main_thread")().attr("ident"));
}

}  // namespace

Watch::Watch(nb::handle progress, std::size_t all)
    : progress_(nb::borrow(progress)),
      all_(all),
      isUsed_(!progress.is_none() || isOnMainThread()),
      next_(std::chrono::steady_clock::now() + interval)
{
}

void Watch::lookUp(std::size_t done)
{
    const nb::gil_scoped_acquire lock;
    if (PyErr_CheckSignals() != 0) {
        throw nb::python_error();
    }
    if (!progress_.is_none()) {
        progress_(done, all_);
    }
    next_ = std::chrono::steady_clock::now() + interval;
}

void Watch::finish()
{
    if (!progress_.is_none()) {
        const nb::gil_scoped_acquire lock;
        progress_(all_, all_);
    }
}
