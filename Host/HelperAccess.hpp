#pragma once

#include <functional>
#include <memory>
#include <string>

namespace sorrel::cli {

/// Sets up the way to the privileged helper for a clean. Where there is none, `mayAsk` allows to install one
/// once the user has said yes on the terminal; otherwise it stays missing. `announce` writes a text to the
/// terminal: the question, and that the system may ask for a password, before it does. It is called on the
/// main thread while the clean waits, so the main loop has to run; the answer is read on the clean's thread.
/// `mayAsk` also lets the system ask for the password on this terminal; what is returned ends that, and must
/// not outlive the clean.
[[nodiscard]] std::shared_ptr<void> setUpHelper(bool mayAsk,
                                                std::function<void(const std::string& text)> announce);

}  // namespace sorrel::cli
