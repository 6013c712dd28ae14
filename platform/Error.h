#pragma once
// The failure that travels from an accessor or helper up to the operation that catches it
// and writes its own message. `what()` is the failure's description.
#include <stdexcept>
#include <string>

namespace vq {

class VqError : public std::runtime_error {
public:
    explicit VqError(const std::string& description, int number = 0, std::string source = {})
        : std::runtime_error(description), number_(number), source_(std::move(source)) {}
    int Number() const { return number_; }
    const std::string& Source() const { return source_; }

private:
    int number_;
    std::string source_;
};

}  // namespace vq
