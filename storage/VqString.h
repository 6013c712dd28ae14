#pragma once
// The two small classes under every tagged file: VqStringBuilder collects lines and joins them
// once, VqStringReader walks a text in memory line by line, forwards and backwards.
#include <cstddef>
#include <string>
#include <vector>

namespace vq {

inline const std::string kCrLf = "\r\n";

class VqStringBuilder {
  public:
    // A new collection holding all the elements in order.
    std::vector<std::string> Items() const { return elements_; }
    void AppendElement(std::string text);
    // Appends `text` with each occurrence of DefaultDelimiter doubled.
    void AppendElementWithDefDelim(const std::string& text);
    // Replaces element `index` (from 0); false with nothing changed when out of range.
    bool UpdateElement(long long index, std::string text);
    // Element `index` (from 0); the empty text when out of range.
    std::string GetElement(long long index) const;
    // Removes the last element; false when there was none.
    bool removeLastElement();
    size_t Elements() const { return elements_.size(); }
    // All elements joined with nothing between them.
    std::string toString() const;
    // All elements with `delimiter` between them and none after the last.
    std::string toDelimitedString(const std::string& delimiter) const;
    void Reset() { elements_.clear(); }

    // Used by AppendElementWithDefDelim; nothing in the server sets it.
    std::string DefaultDelimiter;

  private:
    std::vector<std::string> elements_;
};

class VqStringReader {
  public:
    VqStringReader() = default;
    explicit VqStringReader(std::string text) { toString(std::move(text)); }

    // The text from the position to the next delimiter; the position moves behind it. Without
    // a following delimiter, the rest of the text. At the end, the empty text.
    std::string ReadNextLine();
    // Back to the start of the line just read (the search rules are in the .cpp).
    void SkipOneBack();
    // Past one line without returning it.
    void SkipOneForward();
    // True when the position is beyond the last character. A closing delimiter yields no
    // empty last line.
    bool IsEOF() const { return position_ > text_.size(); }
    // The whole text.
    const std::string& toString() const { return text_; }
    // Replaces the text and goes to position 1.
    void toString(std::string text);
    void ResetPosition() { position_ = 1; }
    const std::string& Delimiter() const { return delimiter_; }
    // The empty text is ignored.
    void Delimiter(const std::string& delimiter);
    // The 1-based index of the next character to read.
    size_t Position() const { return position_; }

  private:
    // The 0-based index of the next delimiter at or after the position, or npos.
    size_t NextDelimiter() const;

    std::string text_;
    std::string delimiter_ = kCrLf;
    size_t position_ = 1;
};

}  // namespace vq
