#include <gtest/gtest.h>

#include "dme/http/server.h"

namespace dme {
namespace http {
namespace {

TEST(StatusTableTest, DoneIs200) {
    EXPECT_EQ(200u, StatusTable::defaults().statusOf(0, READ));
    EXPECT_EQ(200u, StatusTable::defaults().statusOf(0, UPDATE));
    EXPECT_EQ(200u, StatusTable::defaults().statusOf(0, DELETE));
    EXPECT_EQ(200u, StatusTable::defaults().statusOf(0, SCHEMA));
}

TEST(StatusTableTest, SuccessfulCreateIs201) {
    EXPECT_EQ(201u, StatusTable::defaults().statusOf(0, CREATE));
}

TEST(StatusTableTest, FailedCreateKeepsTheStatusOfItsCode) {
    EXPECT_EQ(404u, StatusTable::defaults().statusOf(3, CREATE));
}

TEST(StatusTableTest, FailedIs500) {
    EXPECT_EQ(500u, StatusTable::defaults().statusOf(1, READ));
}

TEST(StatusTableTest, NotAllowedIs405) {
    EXPECT_EQ(405u, StatusTable::defaults().statusOf(2, UPDATE));
}

TEST(StatusTableTest, NotFoundIs404) {
    EXPECT_EQ(404u, StatusTable::defaults().statusOf(3, READ));
}

TEST(StatusTableTest, NoChildrenIs404) {
    EXPECT_EQ(404u, StatusTable::defaults().statusOf(4, READ));
}

TEST(StatusTableTest, ForbiddenIs403) {
    EXPECT_EQ(403u, StatusTable::defaults().statusOf(6, READ));
}

TEST(StatusTableTest, UnknownMethodIs400) {
    EXPECT_EQ(400u, StatusTable::defaults().statusOf(7, READ));
}

TEST(StatusTableTest, NotSupportedIs501) {
    EXPECT_EQ(501u, StatusTable::defaults().statusOf(8, READ));
}

TEST(StatusTableTest, InvalidArgumentIs400) {
    EXPECT_EQ(400u, StatusTable::defaults().statusOf(10, UPDATE));
}

TEST(StatusTableTest, UnhandledIs500) {
    EXPECT_EQ(500u, StatusTable::defaults().statusOf(12, READ));
}

TEST(StatusTableTest, AnyOtherCodeIs500) {
    EXPECT_EQ(500u, StatusTable::defaults().statusOf(5, READ));
    EXPECT_EQ(500u, StatusTable::defaults().statusOf(-1, READ));
    EXPECT_EQ(500u, StatusTable::defaults().statusOf(4711, READ));
}

TEST(StatusTableTest, ReplacedTableAnswersItsOwnStatuses) {
    StatusTable table;
    table.statuses = {{0, 204}, {3, 410}};
    table.created = 202;
    table.otherwise = 503;
    EXPECT_EQ(204u, table.statusOf(0, READ));
    EXPECT_EQ(202u, table.statusOf(0, CREATE));
    EXPECT_EQ(410u, table.statusOf(3, READ));
    EXPECT_EQ(503u, table.statusOf(6, READ));
}

}  // namespace
}  // namespace http
}  // namespace dme
