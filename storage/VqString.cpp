#include "storage/VqString.h"

namespace vq {

void VqStringBuilder::AppendElement(std::string text) { elements_.push_back(std::move(text)); }

void VqStringBuilder::AppendElementWithDefDelim(const std::string& text) {
    if (DefaultDelimiter.empty()) {
        elements_.push_back(text);
        return;
    }
    std::string doubled;
    doubled.reserve(text.size());
    size_t from = 0;
    for (size_t at = text.find(DefaultDelimiter); at != std::string::npos;
         at = text.find(DefaultDelimiter, from)) {
        doubled.append(text, from, at - from);
        doubled += DefaultDelimiter;
        doubled += DefaultDelimiter;
        from = at + DefaultDelimiter.size();
    }
    doubled.append(text, from, std::string::npos);
    elements_.push_back(std::move(doubled));
}

bool VqStringBuilder::UpdateElement(long long index, std::string text) {
    if (index < 0 || static_cast<unsigned long long>(index) >= elements_.size()) return false;
    elements_[static_cast<size_t>(index)] = std::move(text);
    return true;
}

std::string VqStringBuilder::GetElement(long long index) const {
    if (index < 0 || static_cast<unsigned long long>(index) >= elements_.size()) return {};
    return elements_[static_cast<size_t>(index)];
}

bool VqStringBuilder::removeLastElement() {
    if (elements_.empty()) return false;
    elements_.pop_back();
    return true;
}

std::string VqStringBuilder::toString() const { return toDelimitedString(std::string()); }

std::string VqStringBuilder::toDelimitedString(const std::string& delimiter) const {
    if (elements_.empty()) return {};
    size_t total = delimiter.size() * (elements_.size() - 1);
    for (const std::string& element : elements_) total += element.size();
    std::string joined;
    joined.reserve(total);
    for (size_t i = 0; i < elements_.size(); ++i) {
        if (i > 0) joined += delimiter;
        joined += elements_[i];
    }
    return joined;
}

void VqStringReader::toString(std::string text) {
    text_ = std::move(text);
    position_ = 1;
}

void VqStringReader::Delimiter(const std::string& delimiter) {
    if (!delimiter.empty()) delimiter_ = delimiter;
}

size_t VqStringReader::NextDelimiter() const { return text_.find(delimiter_, position_ - 1); }

std::string VqStringReader::ReadNextLine() {
    if (IsEOF()) return {};
    const size_t start = position_ - 1;
    const size_t end = NextDelimiter();
    if (end == std::string::npos) {
        position_ = text_.size() + 1;
        return text_.substr(start);
    }
    position_ = end + delimiter_.size() + 1;
    return text_.substr(start, end - start);
}

void VqStringReader::SkipOneForward() {
    if (IsEOF()) return;
    const size_t end = NextDelimiter();
    position_ = end == std::string::npos ? text_.size() + 1 : end + delimiter_.size() + 1;
}

void VqStringReader::SkipOneBack() {
    // The search starts at position - delimiter length - 1 (1-based), so that the delimiter
    // that closed the line just read is passed over; a delimiter counts when it lies wholly
    // at or before that start. Behind the one found begins the line just read.
    const long long start =
        static_cast<long long>(position_) - static_cast<long long>(delimiter_.size()) - 1;
    if (start < 1) {
        position_ = 1;
        return;
    }
    const long long lastStart = start - static_cast<long long>(delimiter_.size());  // 0-based
    if (lastStart < 0) {
        position_ = 1;
        return;
    }
    const size_t found = text_.rfind(delimiter_, static_cast<size_t>(lastStart));
    position_ = found == std::string::npos ? 1 : found + delimiter_.size() + 1;
}

}  // namespace vq
