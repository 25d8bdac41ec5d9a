#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "login/login_view_controller.hpp"
#include "platform/base64.hpp"
#include "platform/notification_center.hpp"
#include "support/game_screen.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdlib>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace tavrel {
namespace {

TEST(Base64Decoding, SkipsUnknownCharactersOnlyWhenAskedAndRejectsBadPadding) {
  struct Case {
    const char* text;
    bool ignoreUnknown;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"TWFu", false, "Man"}, {"TWE=", false, "Ma"}, {"TQ==", false, "M"}, {"", false, ""},
      {"+/+/", false, "\xFB\xFF\xBF"},
      {"AAECAwQF/v8=", false, std::string("\x00\x01\x02\x03\x04\x05\xFE\xFF", 8)},
      {"TW\nFu", false, std::nullopt},  // a line break is an unknown character like any other
      {"TW\nFu", true, "Man"}, {" T*W\r\nF-u\xC3\xA9", true, "Man"}, {"TQ=\n=", true, "M"},
      {"TWF", true, std::nullopt},  // three characters, four needed
      {"TWFu=", false, std::nullopt}, {"TQ=A", false, std::nullopt}, {"TQ==TWFu", true, std::nullopt},
      {"T===", false, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(dataWithBase64EncodedString(c.text, c.ignoreUnknown), c.expected) << c.text << " " << c.ignoreUnknown;
  }
}

// The userInfo of every post of one name with one object, for as long as it lives.
struct Posts {
  Posts(const char* name, const void* object) {
    NotificationCenter::defaultCenter().addObserver(this, name, object,
                                                    [this](const Notification& n) { seen.push_back(n.userInfo); });
  }
  ~Posts() { NotificationCenter::defaultCenter().removeObserver(this); }
  std::vector<nlohmann::json> seen;
};

class LoginViewTest : public testing::SimulatedGame {
 protected:
  // The form on the game's screen, where taps and typing reach it.
  std::shared_ptr<LoginView> showForm() {
    auto form = std::make_shared<LoginView>(game()->view()->bounds());
    game()->view()->addSubview(form);
    return form;
  }
};

TEST_F(LoginViewTest, LaysOutTheFormByIntegerHalvings) {
  // The label, the two fields and the button.
  const std::pair<CGSize, std::vector<std::array<double, 4>>> layouts[] = {
      {{390, 844}, {{20, 237, 351, 40}, {20, 317, 351, 80}, {20, 407, 351, 80}, {49, 527, 292, 80}}},
      {{375, 667}, {{19, 148, 337, 40}, {19, 228, 337, 80}, {19, 318, 337, 80}, {47, 438, 281, 80}}},
      {{844, 390}, {{43, 10, 759, 40}, {43, 90, 759, 80}, {43, 180, 759, 80}, {106, 300, 633, 80}}},
      // Lower than the form: it runs over both edges, nothing shrinks or moves.
      {{390, 320}, {{20, -25, 351, 40}, {20, 55, 351, 80}, {20, 145, 351, 80}, {49, 265, 292, 80}}},
  };
  for (const auto& [size, expected] : layouts) {
    SCOPED_TRACE(std::to_string(size.width) + " x " + std::to_string(size.height));
    const auto form = std::make_shared<LoginView>(CGRectMake(7, 9, size.width, size.height));
    EXPECT_EQ(form->background()->frame(), CGRectMake(0, 0, size.width, size.height));
    std::vector<std::array<double, 4>> frames;
    for (const auto& view : std::initializer_list<std::shared_ptr<UIView>>{
             form->lblInformation(), form->txtUsername(), form->txtPassword(), form->btnLogin()}) {
      const CGRect r = view->frame();
      frames.push_back({r.origin.x, r.origin.y, r.size.width, r.size.height});
    }
    EXPECT_EQ(frames, expected);
  }
}

TEST_F(LoginViewTest, DrawsTheFormOverThePicture) {
  const auto form = showForm();
  EXPECT_EQ(form->lblInformation()->text(), "Enter your Tavrel login details to start...");
  EXPECT_TRUE(form->lblInformation()->adjustsFontSizeToFitWidth());
  EXPECT_EQ(form->txtUsername()->leftView()->frame(), CGRectMake(0, 0, 20, 80));
  const UIFrame& frame = host().renderFrame();
  auto near = [&frame](double x, double y, std::array<int, 3> rgb, int tolerance) {
    const auto got = testing::pixelAt(frame, {x, y});
    return std::abs(got[0] - rgb[0]) <= tolerance && std::abs(got[1] - rgb[1]) <= tolerance &&
           std::abs(got[2] - rgb[2]) <= tolerance;
  };
  // The first field is the first piece its pixels see in the frame: blended all the same.
  for (double y : {357, 447}) EXPECT_TRUE(near(300, y, {53, 52, 51}, 12)) << "a field over the picture, at 0.95";
  EXPECT_TRUE(near(100, 407, {58, 58, 58}, 1)) << "its border";
  EXPECT_TRUE(near(5, 100, {38, 38, 37}, 25)) << "the picture's charcoal top third";
  EXPECT_TRUE(near(5, 800, {95, 60, 45}, 40)) << "its warm brown below";
}

TEST_F(LoginViewTest, SubmitsTheTextsAsTypedOnceAndComesBackOnItsOwnFailure) {
  const void* gone = nullptr;
  for (const auto& [username, password] : {std::pair<std::string, std::string>{"", ""}, {"  ann lee ", " p w "}}) {
    SCOPED_TRACE("'" + username + "'");
    const auto form = showForm();
    const Posts submitted(kAuthenticateNotification, form.get());
    if (!username.empty()) {
      // Return closes the keyboard in either field and submits nothing.
      ASSERT_TRUE(host().tapElement("Tavrel username"));
      host().typeText(username);
      host().pressReturn();
      EXPECT_EQ(UIResponder::currentFirstResponder(), nullptr);
      ASSERT_TRUE(host().tapElement("Password"));
      host().typeText(password);
      host().pressReturn();
      EXPECT_EQ(UIResponder::currentFirstResponder(), nullptr);
      EXPECT_TRUE(submitted.seen.empty());
      EXPECT_EQ(form->txtUsername()->displayedText(), username);
      EXPECT_NE(form->txtPassword()->displayedText(), password) << "masked";
      EXPECT_FALSE(form->textFieldShouldReturn(form->txtPassword().get()));
      form->txtUsername()->becomeFirstResponder();
    }
    ASSERT_TRUE(host().tapElement("Login"));
    ASSERT_EQ(submitted.seen.size(), 1u);
    EXPECT_EQ(submitted.seen[0], (nlohmann::json{{"username", username}, {"password", password}}));
    EXPECT_EQ(UIResponder::currentFirstResponder(), nullptr) << "the keyboard closes";
    EXPECT_EQ(form->btnLogin()->alpha(), 0.5);
    EXPECT_EQ(form->btnLogin()->currentTitle(), "Connecting...");

    host().tapElement("Connecting...");
    NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, game()->view().get());
    EXPECT_EQ(submitted.seen.size(), 1u) << "a disabled button takes no tap";
    EXPECT_FALSE(form->btnLogin()->isEnabled()) << "a failure for another object";

    NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, form.get());
    EXPECT_EQ(std::tuple(form->btnLogin()->isEnabled(), form->btnLogin()->alpha(), form->btnLogin()->currentTitle(),
                         form->txtUsername()->text(), form->txtPassword()->text()),
              std::tuple(true, 1.0, "Login", username, password));
    form->removeFromSuperview();
    gone = form.get();
  }
  // A form no longer observes once it is gone: this would call into freed memory (ASan reports it).
  NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, gone);
}

constexpr const char* kOneScheme = R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["mygame"]}]})";

// A login page over the game, against the real HTTPS service in virtual time.
class LoginPage : public testing::SimulatedGame {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    endpoint::MockService{.users = {{"ann", "secret"}}}.install(server_);
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
    sim().setServiceBaseUrlForTesting(server_.baseUrl());
    sim().setInfoDictionaryJson(kOneScheme);
  }

  // A page whose callback records its calls and whether the page was still leaving then.
  void present() {
    page_ = std::make_shared<LoginViewController>([this, main = std::this_thread::get_id()](bool result) {
      calls_.push_back(result && std::this_thread::get_id() == main);
      calledWhileLeaving_ = page_ && page_->isBeingDismissed();
    });
    game()->presentViewController(page_, true, nullptr);
    sim().advance(1.0);
  }
  LoginView& form() { return static_cast<LoginView&>(*page_->view()); }
  void logIn(const std::string& password) {
    form().txtUsername()->setText("ann");
    form().txtPassword()->setText(password);
    ASSERT_TRUE(host().tapElement("Login"));
  }
  // The reply, what it brings, and the page's slide or the alert's fade.
  void finish() {
    sim().runUntilIdle();
    sim().advance(1.0);
  }
  std::shared_ptr<UIAlertController> alert() {
    return std::dynamic_pointer_cast<UIAlertController>(page_->presentedViewController());
  }
  nlohmann::json lastLogin() { return nlohmann::json::parse(server_.requests().back().body); }

  endpoint::HttpsServer server_;
  std::shared_ptr<LoginViewController> page_;
  std::vector<bool> calls_;  // true: with true, on the main thread
  bool calledWhileLeaving_ = false;
};

TEST_F(LoginPage, EveryFailureLooksLikeAWrongPasswordAndAnAcceptedLoginLeavesWithOneCall) {
  present();
  const std::pair<const char*, std::function<void()>> failures[] = {
      {"wrong", [] {}},
      {"secret", [this] { server_.dropConnections(); }},
      {"secret", [this] { sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{}]})"); }},
  };
  for (const auto& [password, arrange] : failures) {
    arrange();
    logIn(password);
    sim().runUntilIdle();
    ASSERT_TRUE(alert());
    EXPECT_TRUE(alert()->isBeingPresented()) << "it fades in";
    sim().advance(1.0);
    EXPECT_EQ(alert()->title(), "Tavrel by Orvane");
    EXPECT_EQ(alert()->message(), "Invalid username or password!");
    EXPECT_FALSE(form().btnLogin()->isEnabled()) << "the form waits for OK";
    ASSERT_TRUE(host().tapElement("OK"));
    finish();
    EXPECT_FALSE(alert());
    EXPECT_TRUE(form().btnLogin()->isEnabled());
  }
  EXPECT_TRUE(calls_.empty());
  EXPECT_EQ(server_.requestCount(), 2u) << "none without a scheme";
  EXPECT_THAT(sim().logLines(), ::testing::ElementsAre(::testing::MatchesRegex("SDK > .*CFBundleURLTypes.*")));

  server_.resetControls();
  sim().setInfoDictionaryJson(kOneScheme);
  logIn("secret");
  finish();
  // Called at once, not after the slide.
  EXPECT_EQ(std::tuple(alert(), calls_, calledWhileLeaving_, game()->presentedViewController()),
            std::tuple(nullptr, std::vector<bool>{true}, true, nullptr));
  EXPECT_EQ(lastLogin(), (nlohmann::json{{"username", "ann"}, {"password", "secret"}, {"urlScheme", "mygame"}}));
}

TEST_F(LoginPage, OnlyTheFirstSchemeOfTheFirstTypeIsSentAndANullCallbackIsFine) {
  sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["first","second"]},)"
                              R"({"CFBundleURLSchemes":["other"]}]})");
  page_ = std::make_shared<LoginViewController>(nullptr);
  game()->presentViewController(page_, false, nullptr);
  logIn("secret");
  finish();
  EXPECT_EQ(lastLogin()["urlScheme"], "first");
  EXPECT_EQ(game()->presentedViewController(), nullptr);
  NotificationCenter::defaultCenter().postNotificationName(kAuthenticateNotification, &form(), {{"username", 5}});
  finish();
  EXPECT_EQ(lastLogin()["username"], "") << "what is not a text goes as an empty one";
}

TEST_F(LoginPage, ALoginUnderWayWhenThePageIsTakenAwayStillCallsBack) {
  present();
  logIn("secret");
  game()->dismissViewControllerAnimated(false, nullptr);
  const std::weak_ptr<LoginViewController> page = page_;
  page_.reset();
  EXPECT_FALSE(page.expired()) << "the login's work holds the page";
  finish();
  EXPECT_EQ(calls_, std::vector<bool>{true});
  EXPECT_TRUE(page.expired()) << "and lets it go at the end";
}

}  // namespace
}  // namespace tavrel
