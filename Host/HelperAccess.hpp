#pragma once

#include <functional>
#include <memory>
#include <string>

namespace sorrel::cli {

/// Connects the clean to the privileged helper. If the helper is missing, `mayAsk` allows to install one
/// after the user has agreed on the terminal; otherwise it stays missing. `announce` writes a text to the
/// terminal: the question, and the notice that the system may ask for a password. It is called on the main
/// thread while the clean waits, so the main loop must run; the answer is read on the clean's thread.
/// `mayAsk` also lets the system ask for the password on this terminal; the returned object ends that, and
/// must not outlive the clean.
[[nodiscard]] std::shared_ptr<void> setUpHelper(bool mayAsk,
                                                std::function<void(const std::string& text)> announce);

}  // namespace sorrel::cli
