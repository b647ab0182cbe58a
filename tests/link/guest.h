#pragma once

#include <dlfcn.h>

#include <cstddef>
#include <iostream>
#include <string>

// What a shared object that is loaded while its host runs offers. A host needs nothing of the library to use it.

struct ErrorCase {
    const char* name;
    /// Throws the error from within the library.
    void (*raise)();
    /// Whether what `raise` throws is caught as the error's class and as its bases.
    bool (*catches)(void (*raise)());
};

constexpr int numErrorCases = 16;

struct Guest {
    /// See check_registry.h.
    bool (*registryHolds)(const char* listFile, const char* goldenFolder, std::size_t copies);
    const ErrorCase* errors;
};

/// A shared object that is open.
class Opened {
public:
    /// `scope` says who else may use its symbols: RTLD_LOCAL or RTLD_GLOBAL.
    explicit Opened(const std::string& file, int scope = RTLD_LOCAL) : handle_(dlopen(file.c_str(), RTLD_NOW | scope))
    {
        if (handle_ == nullptr) {
            std::cerr << dlerror() << "\n";
        }
    }
    ~Opened()
    {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    explicit operator bool() const { return handle_ != nullptr; }

    /// The guest in it, or null.
    const Guest* guest() const
    {
        const auto get = reinterpret_cast<const Guest* (*)()>(dlsym(handle_, "ktLinkTestGuest"));
        return get == nullptr ? nullptr : get();
    }

private:
    void* handle_;
};

inline bool isLoaded(const std::string& file)
{
    void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) {
        dlclose(handle);
    }
    return handle != nullptr;
}
