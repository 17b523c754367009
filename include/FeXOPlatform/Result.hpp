#pragma once

#include <FeXOPlatform/Error.hpp>

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

} // namespace fexo
