#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// The identity text of a file record: "finderID:parentFinderID:size:url" with the values at the time of
/// take(). A scan makes millions of them and reads few, so it keeps the values, and builds the text when it
/// is first needed as a string. From then on that string is the field: a reference to it stays valid as long
/// as the field, and sees each change of it.
///
/// It reads and writes like a std::string; operations missing here are available through text(). Several
/// threads may read at once.
class IdentityText {
 public:
  using value_type = char;
  using iterator = std::string::iterator;
  using const_iterator = std::string::const_iterator;
  static constexpr std::size_t npos = std::string::npos;

  IdentityText(const IdentityText& other);
  IdentityText& operator=(const IdentityText& other);
  IdentityText& operator=(std::string_view text);
  ~IdentityText();

  /// The field as a string, for reading and for writing.
  [[nodiscard]] const std::string& text() const;
  [[nodiscard]] std::string& text();
  operator const std::string&() const { return text(); }
  operator std::string&() { return text(); }
  operator std::string_view() const { return text(); }
  /// A copy of the text. The field does not grow.
  [[nodiscard]] std::string str() const;

  [[nodiscard]] std::size_t size() const { return text().size(); }
  [[nodiscard]] std::size_t length() const { return size(); }
  [[nodiscard]] bool empty() const { return text().empty(); }
  [[nodiscard]] const char* c_str() const { return text().c_str(); }
  [[nodiscard]] const char* data() const { return text().data(); }
  [[nodiscard]] const_iterator begin() const { return text().begin(); }
  [[nodiscard]] const_iterator end() const { return text().end(); }
  [[nodiscard]] iterator begin() { return text().begin(); }
  [[nodiscard]] iterator end() { return text().end(); }
  [[nodiscard]] auto rbegin() const { return text().rbegin(); }
  [[nodiscard]] auto rend() const { return text().rend(); }
  [[nodiscard]] auto rbegin() { return text().rbegin(); }
  [[nodiscard]] auto rend() { return text().rend(); }
  [[nodiscard]] char front() const { return text().front(); }
  [[nodiscard]] char back() const { return text().back(); }
  [[nodiscard]] char at(std::size_t index) const { return text().at(index); }
  const char& operator[](std::size_t index) const { return text()[index]; }
  char& operator[](std::size_t index) { return text()[index]; }
  [[nodiscard]] std::string substr(std::size_t from = 0, std::size_t count = npos) const {
    return text().substr(from, count);
  }
  template <class... Arguments>
  [[nodiscard]] std::size_t find(const Arguments&... arguments) const {
    return text().find(arguments...);
  }
  template <class... Arguments>
  [[nodiscard]] std::size_t rfind(const Arguments&... arguments) const {
    return text().rfind(arguments...);
  }
  template <class... Arguments>
  [[nodiscard]] std::size_t find_first_of(const Arguments&... arguments) const {
    return text().find_first_of(arguments...);
  }
  template <class... Arguments>
  [[nodiscard]] std::size_t find_last_of(const Arguments&... arguments) const {
    return text().find_last_of(arguments...);
  }
  template <class... Arguments>
  [[nodiscard]] int compare(const Arguments&... arguments) const {
    return text().compare(arguments...);
  }
  [[nodiscard]] bool starts_with(std::string_view start) const { return text().starts_with(start); }
  [[nodiscard]] bool ends_with(std::string_view end) const { return text().ends_with(end); }

  IdentityText& operator+=(std::string_view tail) { return text() += tail, *this; }
  IdentityText& operator+=(char tail) { return text() += tail, *this; }
  template <class... Arguments>
  IdentityText& append(const Arguments&... arguments) {
    return text().append(arguments...), *this;
  }
  template <class... Arguments>
  IdentityText& assign(const Arguments&... arguments) {
    return text().assign(arguments...), *this;
  }
  /// Return what std::string's operations return: the whole string, or the position of the inserted
  /// characters.
  template <class... Arguments>
  decltype(auto) insert(const Arguments&... arguments) {
    return text().insert(arguments...);
  }
  template <class... Arguments>
  std::string& replace(const Arguments&... arguments) {
    return text().replace(arguments...);
  }
  void swap(std::string& other) { text().swap(other); }
  void swap(IdentityText& other) { text().swap(other.text()); }
  friend void swap(IdentityText& a, IdentityText& b) { a.swap(b); }
  friend void swap(IdentityText& a, std::string& b) { a.swap(b); }
  friend void swap(std::string& a, IdentityText& b) { b.swap(a); }
  void push_back(char tail) { text().push_back(tail); }
  void clear() { text().clear(); }

  friend bool operator==(const IdentityText& a, const IdentityText& b) { return a.str() == b.str(); }
  friend bool operator==(const IdentityText& a, std::string_view b) { return a.str() == b; }
  friend std::strong_ordering operator<=>(const IdentityText& a, const IdentityText& b) {
    return a.str() <=> b.str();
  }
  friend std::strong_ordering operator<=>(const IdentityText& a, std::string_view b) {
    return std::string_view(a.str()) <=> b;
  }
  friend std::string operator+(const IdentityText& a, const IdentityText& b) { return a.str() + b.str(); }
  friend std::string operator+(const IdentityText& a, std::string_view b) { return a.str().append(b); }
  friend std::string operator+(std::string_view a, const IdentityText& b) {
    return std::string(a).append(b.str());
  }
  friend std::string operator+(const IdentityText& a, char b) { return a.str() + b; }
  friend std::string operator+(char a, const IdentityText& b) { return a + b.str(); }
  friend std::ostream& operator<<(std::ostream& out, const IdentityText& text);

 private:
  friend class FileInformation;
  IdentityText(Integer finderID, Integer parentFinderID, std::int64_t size, URL url)
      : finderID_(finderID), parentFinderID_(parentFinderID), size_(size), url_(std::move(url)) {}
  /// Stores the current values.
  void take(Integer finderID, Integer parentFinderID, std::int64_t size, const URL& url);
  [[nodiscard]] std::string joined() const;

  Integer finderID_;
  Integer parentFinderID_;
  std::int64_t size_;
  URL url_;
  mutable std::atomic<std::string*> text_{nullptr};  // once built, it is the field
};

}  // namespace sorrel

template <>
struct std::hash<sorrel::IdentityText> {
  std::size_t operator()(const sorrel::IdentityText& text) const {
    return std::hash<std::string>()(text.str());
  }
};
