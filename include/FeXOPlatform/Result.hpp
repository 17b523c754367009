#pragma once

#include <FeXOPlatform/Error.hpp>

#include <optional>
#include <utility>
#include <variant>

namespace fexo {

// The two-case outcome of every asynchronous operation: success with a T, or failure with
// an Error. Accessing the case that is not held is a programming error and throws
// std::bad_variant_access. An outcome is never to be dropped unread.
template <class T>
class [[nodiscard]] Result {
public:
    static Result success(T value) { return Result(std::in_place_index<0>, std::move(value)); }
    static Result failure(Error error) { return Result(std::in_place_index<1>, std::move(error)); }

    bool isSuccess() const { return storage_.index() == 0; }
    bool isFailure() const { return storage_.index() == 1; }

    const T& value() const& { return std::get<0>(storage_); }
    T& value() & { return std::get<0>(storage_); }
    T&& value() && { return std::get<0>(std::move(storage_)); }
    const Error& error() const { return std::get<1>(storage_); }

private:
    template <std::size_t I, class V>
    Result(std::in_place_index_t<I> index, V&& v) : storage_(index, std::forward<V>(v))
    {
    }

    std::variant<T, Error> storage_;
};

// The outcome of an operation that gives nothing back but may fail: success, or failure with an
// Error. Accessing the error of a success throws std::bad_optional_access.
template <>
class [[nodiscard]] Result<void> {
public:
    static Result success() { return Result(std::nullopt); }
    static Result failure(Error error) { return Result(std::move(error)); }

    bool isSuccess() const { return !error_.has_value(); }
    bool isFailure() const { return error_.has_value(); }

    const Error& error() const { return error_.value(); }

private:
    explicit Result(std::optional<Error> error) : error_(std::move(error)) { }

    std::optional<Error> error_;
};

} // namespace fexo
