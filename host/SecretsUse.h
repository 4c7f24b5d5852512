#pragma once

namespace kvhost {

/// Whether the files and variables that hold secrets are read along with a configuration.
enum class SecretsUse {
    Read,  ///< to deliver with it
    Skip  ///< for those who only hand in or look: passwords, private keys and tokens may be out of their reach
};

}  // namespace kvhost
