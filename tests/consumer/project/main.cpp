// A host built against the installed package: it links, reaches the singleton and the globals.
#include <tavrel_sdk/tavrel_sdk.hpp>

#include <cstdio>
#include <cstring>

int main() {
  auto& sdk = tavrel::TavrelSDK::sharedInstance();
  sdk.setAuthToken(std::string(24, 'a') + "USER-ID-OF-24-CHARACTERS");
  if (tavrel::TavrelSDK::getUserId() != "USER-ID-OF-24-CHARACTERS") return 1;
  if (tavrel_sdkVersionNumber != 1.0) return 2;
  if (std::strcmp(reinterpret_cast<const char*>(tavrel_sdkVersionString),
                  "@(#)PROGRAM:tavrel_sdk  PROJECT:tavrel-sdk-1\n") != 0) return 3;
  std::puts("consumer ok");
  return 0;
}
