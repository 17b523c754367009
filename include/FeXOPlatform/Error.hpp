#pragma once

#include <FeXOPlatform/Export.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace fexo {

// The platform's error domains, which transport and decoding errors keep.
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

// Base of every concrete error kind (URLError, DecodingError, EncodingError, ...). Each kind
// gives its domain and code once, where it is defined: the platform's for the platform's errors,
// a domain of the library's own only for what the library adds (store outcomes, configuration
// checks).
class FEXO_EXPORT ErrorBase {
public:
    virtual ~ErrorBase();

    // The English sentence a user may see.
    virtual std::string localizedDescription() const = 0;
    // The textual form printed for developers: type, code and details.
    virtual std::string description() const = 0;
    // The domain ("NSURLErrorDomain", ...) and the code within it. The domain is a constant
    // string that outlives every error.
    virtual std::string_view errorDomain() const = 0;
    virtual std::int64_t errorCode() const = 0;
};

// A shared, immutable, type-erased error value. Copies share the same concrete error;
// the concrete kind is recovered with as<T>().
class FEXO_EXPORT Error {
public:
    template <class E>
        requires std::is_base_of_v<ErrorBase, std::decay_t<E>>
        Error(E&& error) // NOLINT(google-explicit-constructor): any concrete error passes where an Error is due
            : impl_(std::make_shared<const std::decay_t<E>>(std::forward<E>(error)))
        {
        }

        std::string localizedDescription() const
        {
            return impl_->localizedDescription();
        }
        std::string description() const
        {
            return impl_->description();
        }
        std::string_view domain() const
        {
            return impl_->errorDomain();
        }
        std::int64_t code() const
        {
            return impl_->errorCode();
        }

        // The concrete error when it is of kind E (or derived from it), else null.
        template <class E>
        const E* as() const
        {
            return dynamic_cast<const E*>(impl_.get());
        }

    private:
        std::shared_ptr<const ErrorBase> impl_;
};

} // namespace fexo
