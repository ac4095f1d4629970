// Digest verification as pure code: each way a request is refused. libcurl's own Digest
// against the running camera (HttpCore) checks the answer itself.
#include <gtest/gtest.h>

#include <regex>

#include "DigestAuth.h"

namespace camsim {
namespace {

constexpr const char* kRealm = "AXIS_B8A44F9D7D55";
constexpr const char* kUri = "/axis-cgi/ptz.cgi?query=position";

// One client answer; each field can be made wrong on its own.
struct Answer {
  std::string password = "pass", nc = "00000001", uri = kUri, user = "root", realm = kRealm, qop = "auth";
};

class DigestAuthenticatorTest : public ::testing::Test {
 protected:
  DigestAuthenticatorTest() : auth_(kRealm, std::chrono::seconds(300), [this] { return now_; }) {}
  std::string IssueNonce() {
    std::smatch match;
    const std::string challenge = auth_.Challenge();
    EXPECT_TRUE(std::regex_search(challenge, match, std::regex("nonce=\"([0-9a-f]+)\"")));
    return match[1];
  }
  DigestVerdict Verify(const std::string& nonce, const Answer& a = {}) {
    const std::string response = DigestResponse(a.user, a.realm, a.password, "GET", a.uri, nonce, a.nc, "abc", a.qop);
    return auth_.Verify("GET", "/axis-cgi/ptz.cgi",
                        "Digest username=\"" + a.user + "\", realm=\"" + a.realm + "\", nonce=\"" + nonce +
                            "\", uri=\"" + a.uri + "\", cnonce=\"abc\", nc=" + a.nc + ", qop=" + a.qop +
                            ", response=\"" + response + "\", algorithm=MD5",
                        "root", "pass");
  }
  std::chrono::steady_clock::time_point now_ = std::chrono::steady_clock::time_point(std::chrono::hours(1));
  DigestAuthenticator auth_;
};

TEST_F(DigestAuthenticatorTest, AcceptsTheRightAnswerOncePerNonceCountAndRefusesEachWrongPart) {
  const std::string nonce = IssueNonce();
  EXPECT_EQ(Verify(nonce), DigestVerdict::Accepted);
  EXPECT_EQ(Verify(nonce), DigestVerdict::ReplayedCount);
  EXPECT_EQ(Verify(nonce, {.nc = "00000002"}), DigestVerdict::Accepted);
  for (auto [answer, verdict] : {std::pair{Answer{.password = "wrong"}, DigestVerdict::WrongResponse},
                                 {Answer{.uri = "/axis-cgi/param.cgi"}, DigestVerdict::Malformed},  // another path
                                 {Answer{.user = "admin"}, DigestVerdict::WrongUser},
                                 {Answer{.realm = "AXIS_OTHER"}, DigestVerdict::Malformed},
                                 {Answer{.qop = "auth-int"}, DigestVerdict::Malformed}}) {
    EXPECT_EQ(Verify(IssueNonce(), answer), verdict) << ToString(verdict);
  }
  EXPECT_EQ(Verify("0123456789abcdef"), DigestVerdict::UnknownNonce);
  const std::string old = IssueNonce();
  now_ += std::chrono::seconds(301);
  EXPECT_EQ(Verify(old), DigestVerdict::StaleNonce);
  EXPECT_NE(auth_.Challenge(true).find("stale=TRUE"), std::string::npos);
}

}  // namespace
}  // namespace camsim
