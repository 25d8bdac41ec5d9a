#include "platform/bundle.hpp"
#include "platform/notification_center.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace tavrel {
namespace {

TEST(NotificationCenter, DeliversByNameAndObjectBeforeThePostReturns) {
  NotificationCenter center;
  int form = 0, otherForm = 0, controller = 0;
  std::vector<std::string> seen;
  std::thread::id deliveredOn;
  center.addObserver(&controller, "authenticate", &form, [&](const Notification& n) {
    seen.push_back(n.name + ":" + n.userInfo.value("username", "?"));
    deliveredOn = std::this_thread::get_id();
  });
  center.addObserver(&controller, "authenticateFailed", nullptr, [&](const Notification& n) {
    seen.push_back(n.name);
  });
  center.postNotificationName("authenticate", &form, {{"username", "ann"}, {"password", ""}});
  center.postNotificationName("authenticate", &otherForm, nullptr);  // another object: not delivered
  center.postNotificationName("authenticateFailed", &otherForm);     // any object matches null
  EXPECT_EQ(seen, (std::vector<std::string>{"authenticate:ann", "authenticateFailed"}));
  EXPECT_EQ(deliveredOn, std::this_thread::get_id());

  center.removeObserver(&controller, "authenticate");
  center.postNotificationName("authenticate", &form);
  EXPECT_EQ(seen.size(), 2u);
  center.removeObserver(&controller);
  center.postNotificationName("authenticateFailed", nullptr);
  EXPECT_EQ(seen.size(), 2u);
}

class Bundle : public testing::SimulatedSession {};

TEST_F(Bundle, FirstSchemeOfTheFirstUrlType) {
  EXPECT_EQ(firstUrlScheme(), std::nullopt);
  sim().setInfoDictionaryJson(
      R"({"CFBundleURLTypes": [{"CFBundleURLSchemes": ["mygame", "other"]}, {"CFBundleURLSchemes": ["x"]}]})");
  EXPECT_EQ(firstUrlScheme(), "mygame");
  sim().setInfoDictionaryJson(R"({"CFBundleURLTypes": []})");
  EXPECT_EQ(firstUrlScheme(), std::nullopt);
  sim().setInfoDictionaryJson("not json");
  EXPECT_TRUE(objectForInfoDictionaryKey("CFBundleURLTypes").is_null());
}

}  // namespace
}  // namespace tavrel
