#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// A cheap handle on a picture that is loaded only when it is drawn: the name of a picture of the
/// application's main bundle, the icon that the desktop shows for a file, or nothing.
class Image {
 public:
  enum class Kind { Empty, Named, FileIcon };

  Image() = default;
  /// A handle on a named picture, without a check that it exists; empty if `name` contains a slash.
  static Image named(std::string_view name);
  /// The picture called `name` among the resources of the main bundle (with any extension), or in the icon
  /// theme of the desktop; an empty handle if there is none.
  static Image lookUp(std::string_view name);
  /// The icon of the file at `url`.
  static Image iconOf(const URL& url);

  [[nodiscard]] Kind kind() const noexcept {
    if (text_.empty()) return Kind::Empty;
    return text_.view().starts_with("file://") ? Kind::FileIcon : Kind::Named;
  }
  [[nodiscard]] bool isEmpty() const noexcept { return text_.empty(); }
  /// The name; for Kind::FileIcon, the text of the file's URL.
  [[nodiscard]] std::string_view name() const noexcept { return text_.view(); }
  /// The file whose icon this is; meaningful for Kind::FileIcon.
  [[nodiscard]] std::string filePath() const;

  friend bool operator==(const Image&, const Image&) noexcept = default;

 private:
  explicit Image(SharedText text) : text_(std::move(text)) {}

  SharedText text_;  // one word, since every record of a scan has a picture; no name begins like a URL
};

}  // namespace sorrel
