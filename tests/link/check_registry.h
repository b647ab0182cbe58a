#pragma once

#include <kt/archive.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

// Holds the class registry against a list of names, makes an object of each class and loads the stored ones of each. It names
// no class of the library: they come with the library or not at all.

inline std::multiset<std::string> registered()
{
    std::multiset<std::string> names;
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        names.insert(entry->name());
    }
    return names;
}

/// Whether `object` is of the class that is registered as `name`.
inline bool isOf(const std::string& name, const ktPersistent* object)
{
    if (object == nullptr) {
        return false;
    }
    const ktPersistent& known = *object;
    const kt_Instantiator* entry = kt_Instantiator::find(typeid(known));
    return entry != nullptr && entry->name() == name;
}

inline bool canMake(const std::string& name)
{
    const kt_Instantiator* entry = kt_Instantiator::find(name);
    const std::unique_ptr<ktPersistent> made(entry == nullptr ? nullptr : entry->make());
    return isOf(name, made.get());
}

/// Loads all objects in `file` by pointer. Returns how many there are if each is of the class `name`, else 0.
inline int loadAll(const std::string& file, const std::string& name)
{
    std::ifstream in(file, std::ios::binary);
    ktArchive archive(static_cast<std::istream&>(in));
    int loaded = 0;
    while (in.peek() != std::ifstream::traits_type::eof()) {
        const ktArchive::Pass pass(archive);
        ktPersistent* object = nullptr;
        ktPersistent::serializePointer(archive, nullptr, object);
        // The pass owns an object with a count, the caller one without.
        const std::unique_ptr<ktPersistent> owner(dynamic_cast<ktRepBase*>(object) == nullptr ? object : nullptr);
        if (!isOf(name, object)) {
            return 0;
        }
        ++loaded;
    }
    return loaded;
}

/// What is wrong with a class that should be registered, or nothing.
inline std::string complaint(const std::string& name, std::size_t times, std::size_t copies,
                             const std::string& goldenFolder)
{
    if (times < 1 || times > copies) {
        return "is listed, and registered " + std::to_string(times) + " times";
    }
    if (!canMake(name)) {
        return "cannot be made by its name";
    }
    const std::string file = goldenFolder + "/" + name.substr(name.rfind(':') + 1) + ".ktar";
    if (loadAll(file, name) == 0) {
        return "does not come out of " + file;
    }
    return "";
}

/// Whether the registry holds the classes listed in `listFile`, one a line in any order, and no other, and each can be made
/// and comes out of its golden archive in `goldenFolder`. Up to `copies` copies of the library may have registered it. Says on stderr what does not.
inline bool registryHolds(const char* listFile, const std::string& goldenFolder, std::size_t copies = 1)
{
    std::ifstream file(listFile);
    const std::multiset<std::string> listed{std::istream_iterator<std::string>(file), {}};
    const std::multiset<std::string> found = registered();
    bool right = !listed.empty();
    for (const std::string& name : listed) {
        const std::string wrong = complaint(name, found.count(name), copies, goldenFolder);
        if (!wrong.empty()) {
            std::cerr << name << " " << wrong << "\n";
            right = false;
        }
    }
    for (const std::string& name : found) {
        if (listed.count(name) == 0) {
            std::cerr << name << " is registered, but not listed\n";
            right = false;
        }
    }
    return right;
}
