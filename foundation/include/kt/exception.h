#pragma once

#include <kt/config.h>
#include <kt/persistent.h>

#include <exception>
#include <iosfwd>
#include <memory>
#include <string>

/// Base of every exception class of these libraries. Operations also pass on what the standard library throws, std::bad_alloc above
/// all, and what the caller's own code throws.
///
/// Each class can be archived in place, as its text, so that an error can be kept with a result. Only the eight error classes of
/// libclastool can be archived by pointer, which gives another process an error of the same class: the class registry knows them.
///
/// Copy: copies the text.
class KT_FOUNDATION_API ktException : public ktPersistent, public std::exception {
public:
    ~ktException() override;

    /// The fixed number of the class, the same on every platform.
    virtual long errorNumber() const = 0;
    /// Throws a copy of this object by its own class and destroys this object, which must live on the free store. Never
    /// returns.
    virtual void suicideAndRethrow() = 0;

protected:
    /// Writes the message.
    virtual void message_(std::ostream& out) const = 0;

    /// What each concrete class does in `suicideAndRethrow`.
    template <class Concrete>
    [[noreturn]] static void rethrowCopyOf(Concrete* object)
    {
        std::unique_ptr<ktPersistent> owner(object);
        Concrete copy(*object);
        owner.reset();
        throw copy;
    }

public:
    /// The whole message.
    std::string message() const;
    /// Exactly the message.
    const char* what() const noexcept override = 0;
};

/// An exception that holds its message.
class KT_FOUNDATION_API ktExceptionWithString : public ktException {
public:
    /// With the whole text of the message.
    ktExceptionWithString(const std::string& message = "");

    const char* what() const noexcept override;

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void message_(std::ostream& out) const override;

private:
    std::string message_text_;
};

/// A null handle was used where an object is required. Its message is empty.
class KT_FOUNDATION_API ktBadPointer : public ktException {
public:
    long errorNumber() const override;
    void suicideAndRethrow() override;
    const char* what() const noexcept override;

protected:
    void message_(std::ostream& out) const override;
};
