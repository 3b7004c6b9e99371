// A deleter for std::unique_ptr that calls one function: std::unique_ptr<FILE, deleter<fclose>>.
#pragma once

template <auto Function>
struct deleter {
    template <class T>
    void operator()(T *owned) const noexcept
    {
        Function(owned);
    }
};
