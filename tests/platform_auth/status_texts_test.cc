// Every status word of the transport, users and secrets has its own text.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "schedcli/platform/auth.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"

namespace {

TEST(PlatformStatusTexts, EveryCodeHasADistinctText) {
  std::set<uint32_t> codes = {CMI_STREAM_END, CMI_NOTHING_WAITING};
  for (uint32_t code = CMI_ERR_BAD_ARGUMENT; code <= CMI_ERR_EMPTY; code++) codes.insert(code);
  for (uint32_t code = AUTH_ERR_BAD_ARGUMENT; code <= AUTH_ERR_NO_MEMORY; code++) codes.insert(code);
  for (uint32_t code = SECRETS_ERR_BAD_ARGUMENT; code <= SECRETS_ERR_NO_MEMORY; code++) codes.insert(code);
  std::set<std::string> texts;
  for (uint32_t code : codes) {
    std::string text = syserr2str(code);
    EXPECT_NE(text.rfind("unknown error", 0), 0u) << std::hex << code;
    texts.insert(text);
  }
  EXPECT_EQ(texts.size(), codes.size());
}

}  // namespace
