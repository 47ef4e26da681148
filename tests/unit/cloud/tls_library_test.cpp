#include "transport/cloud/tls_library.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tarvik {
namespace {

std::set<std::string> existing_files;

bool Exists(const char* path) { return existing_files.contains(path); }

class Issuers : public testing::Test {
protected:
    static std::string FoundWith(std::set<std::string> files) {
        existing_files = std::move(files);
        const char* found = FindIssuersFile(&Exists);
        return found == nullptr ? "none" : found;
    }
};

TEST_F(Issuers, NeedNoFileWhereOpenSslFindsThemItself) {
    EXPECT_EQ(FoundWith({"/usr/lib/ssl/certs", "/etc/ssl/certs/ca-certificates.crt"}), "none");
}

TEST_F(Issuers, AreFoundOnOtherDistributions) {
    for (const char* file : {"/etc/pki/tls/certs/ca-bundle.crt", "/etc/ssl/ca-bundle.pem",
                             "/etc/ssl/certs/ca-certificates.crt", "/etc/ssl/cert.pem"}) {
        EXPECT_EQ(FoundWith({file}), file);
    }
    EXPECT_EQ(FoundWith({"/etc/ssl/cert.pem", "/etc/pki/tls/certs/ca-bundle.crt"}),
              "/etc/pki/tls/certs/ca-bundle.crt");
    EXPECT_EQ(FoundWith({}), "none");
}

}  // namespace
}  // namespace tarvik
