// From error numbers to exceptions and back, for memory that runs out.
#pragma once

#include <cerrno>
#include <exception>
#include <new>
#include <system_error>

// After a C call that failed: throws std::bad_alloc if errno says that memory ran out.
inline void throw_if_memory_ran_out()
{
    if (errno == ENOMEM)
        throw std::bad_alloc();
}

// Runs WORK. Returns 0, or the error number of the exception that ended it: ENOMEM, that of a
// std::system_error, or EINVAL for any other.
template <class Work>
int error_of(Work &&work) noexcept
{
    try {
        work();
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    } catch (const std::system_error &error) {
        return error.code().value();
    } catch (const std::exception &) {
        return EINVAL;
    }
}
