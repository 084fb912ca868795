#include "server/requests/login_requests.h"

#include "tests/exchange.h"

namespace {

TEST(Login, ByASocketOutsideTheTableCountsOnAndChangesNoConnection)
{
    const TestConnection bystander(3);
    const auto request = MakeRequest(1000, "{}", /* session= */ 3);
    const Answer first = ExchangeOn(/* fd= */ 999, ProcessLoginReq, request);
    const Answer second = ExchangeOn(/* fd= */ 999, ProcessLoginReq, request);
    EXPECT_EQ(second.header.ulSessionId, first.header.ulSessionId + 1);
    EXPECT_EQ(GetSessionIdByFd(bystander.fd()), 3U);
    EXPECT_EQ(GetFdType(bystander.fd()), -1);
}

} // namespace
