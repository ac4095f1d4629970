// Digest verification as pure code: known answers, and each way a request is refused.
#include <gtest/gtest.h>

#include <regex>

#include "DigestAuth.h"

namespace camsim {
namespace {

TEST(DigestMath, MatchesTheWorkedExampleOfRfc2617) {
  EXPECT_EQ(Md5Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(DigestResponse("Mufasa", "testrealm@host.com", "Circle Of Life", "GET", "/dir/index.html",
                           "dcd98b7102dd2f0e8b11d0f600bfb0c093", "00000001", "0a4f113b", "auth"),
            "6629fae49393a05397450978507c4ef1");
}

TEST(DigestHeader, ParsesQuotedEscapedAndBareValues) {
  auto params = ParseDigestAuthorization(
      R"(Digest username="ro\"ot", realm="AXIS_X", nonce="n1", uri="/a?b=c,d", qop=auth, nc=00000001, cnonce="c")");
  ASSERT_TRUE(params);
  EXPECT_EQ((*params)["username"], "ro\"ot");
  EXPECT_EQ((*params)["uri"], "/a?b=c,d");
  EXPECT_EQ((*params)["qop"], "auth");
  EXPECT_EQ((*params)["nc"], "00000001");

  EXPECT_FALSE(ParseDigestAuthorization("Basic cm9vdDpwYXNz"));
  EXPECT_FALSE(ParseDigestAuthorization("Digest username=\"unterminated"));
  EXPECT_FALSE(ParseDigestAuthorization(""));
}

class DigestAuthenticatorTest : public ::testing::Test {
 protected:
  DigestAuthenticatorTest() : auth_("AXIS_B8A44F9D7D55", std::chrono::seconds(300), [this] { return now_; }) {}

  std::string IssueNonce() {
    const std::string challenge = auth_.Challenge();
    std::smatch match;
    EXPECT_TRUE(std::regex_search(challenge, match, std::regex("nonce=\"([0-9a-f]+)\"")));
    return match[1];
  }

  std::string Header(const std::string& nonce, const std::string& password, const std::string& nc = "00000001",
                     const std::string& uri = "/axis-cgi/ptz.cgi?query=position", const std::string& user = "root",
                     const std::string& realm = "AXIS_B8A44F9D7D55", const std::string& qop = "auth") {
    const std::string response = DigestResponse(user, realm, password, "GET", uri, nonce, nc, "abcdef", qop);
    return "Digest username=\"" + user + "\", realm=\"" + realm + "\", nonce=\"" + nonce + "\", uri=\"" + uri +
           "\", cnonce=\"abcdef\", nc=" + nc + ", qop=" + qop + ", response=\"" + response + "\", algorithm=MD5";
  }

  DigestVerdict Verify(const std::string& header, const std::string& password = "pass") {
    return auth_.Verify("GET", "/axis-cgi/ptz.cgi", header, "root", password);
  }

  std::chrono::steady_clock::time_point now_ = std::chrono::steady_clock::time_point(std::chrono::hours(1));
  DigestAuthenticator auth_;
};

TEST_F(DigestAuthenticatorTest, ChallengeNamesTheCameraRealmMd5AndQopAuth) {
  const std::string challenge = auth_.Challenge();
  EXPECT_EQ(challenge.rfind("Digest realm=\"AXIS_B8A44F9D7D55\", nonce=\"", 0), 0u) << challenge;
  EXPECT_NE(challenge.find("algorithm=MD5"), std::string::npos);
  EXPECT_NE(challenge.find("qop=\"auth\""), std::string::npos);
  EXPECT_NE(auth_.Challenge(), challenge);  // every challenge has a fresh nonce
}

TEST_F(DigestAuthenticatorTest, AcceptsTheRightPasswordOncePerNonceCount) {
  const std::string nonce = IssueNonce();
  EXPECT_EQ(Verify(Header(nonce, "pass")), DigestVerdict::Accepted);
  EXPECT_EQ(Verify(Header(nonce, "pass")), DigestVerdict::ReplayedCount);
  EXPECT_EQ(Verify(Header(nonce, "pass", "00000002")), DigestVerdict::Accepted);
}

TEST_F(DigestAuthenticatorTest, LongPasswordsWorkAsOnTheCamera) {
  for (const std::string password : {"0123456789abcdef", "0123456789012345678901234567890123456789"}) {
    EXPECT_EQ(Verify(Header(IssueNonce(), password), password), DigestVerdict::Accepted) << password.size();
  }
}

TEST_F(DigestAuthenticatorTest, RefusesWrongCredentialsAndForeignParameters) {
  EXPECT_EQ(Verify(""), DigestVerdict::Missing);
  EXPECT_EQ(Verify("Basic cm9vdDpwYXNz"), DigestVerdict::Missing);
  EXPECT_EQ(Verify(Header(IssueNonce(), "wrong")), DigestVerdict::WrongResponse);
  EXPECT_EQ(Verify(Header(IssueNonce(), "pass", "00000001", "/axis-cgi/ptz.cgi", "admin")), DigestVerdict::WrongUser);
  EXPECT_EQ(Verify(Header(IssueNonce(), "pass", "00000001", "/axis-cgi/ptz.cgi", "root", "AXIS_OTHER")),
            DigestVerdict::Malformed);
  EXPECT_EQ(
      Verify(Header(IssueNonce(), "pass", "00000001", "/axis-cgi/ptz.cgi", "root", "AXIS_B8A44F9D7D55", "auth-int")),
      DigestVerdict::Malformed);
  // A digest made for another path cannot be replayed against this one.
  EXPECT_EQ(Verify(Header(IssueNonce(), "pass", "00000001", "/axis-cgi/param.cgi")), DigestVerdict::Malformed);
}

TEST_F(DigestAuthenticatorTest, NoncesMustBeIssuedHereAndFresh) {
  EXPECT_EQ(Verify(Header("0123456789abcdef", "pass")), DigestVerdict::UnknownNonce);
  const std::string nonce = IssueNonce();
  now_ += std::chrono::seconds(301);
  EXPECT_EQ(Verify(Header(nonce, "pass")), DigestVerdict::StaleNonce);
  EXPECT_NE(auth_.Challenge(true).find("stale=TRUE"), std::string::npos);
}

}  // namespace
}  // namespace camsim
