#pragma once

#include <string>

namespace kvsink {

/// Makes a certification authority and a server certificate for localhost, 127.0.0.1 and ::1, both valid for
/// 30 days, and writes ca.pem, cert.pem and key.pem (mode 0600) into `directory`, which is made if need be.
/// The authority's key is thrown away: nothing more can be signed with it. Throws StartError "--self-signed:
/// ...".
void writeSelfSignedCertificates(const std::string& directory);

}  // namespace kvsink
