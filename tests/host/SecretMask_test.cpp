#include "SecretMask.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

using Accounts = std::vector<SecretMask::Account>;

TEST(SecretMaskTest, APasswordIsMaskedWhereverItStands) {
    const SecretMask mask(Accounts{{"kv", "hunter2"}});
    EXPECT_EQ(mask.Apply("hunter2 and xhunter2x"), "[masked] and x[masked]x");
}

TEST(SecretMaskTest, ThePasswordsOfAllAccountsAreMasked) {
    const SecretMask mask(Accounts{{"a", "first"}, {"b", "second"}});
    EXPECT_EQ(mask.Apply("first, second"), "[masked], [masked]");
}

TEST(SecretMaskTest, ThePasswordInAConnectionKeyIsMasked) {
    const SecretMask mask(Accounts{{"u", "p"}});
    EXPECT_EQ(mask.Apply("{7}-{mx1:25}-{2}-{u}-{p}"), "{7}-{mx1:25}-{2}-{u}-{[masked]}");
}

TEST(SecretMaskTest, APasswordThatIsAPartOfTheUserNameIsMaskedInAConnectionKeyToo) {
    const SecretMask mask(Accounts{{"pager7", "pager"}});
    EXPECT_EQ(mask.Apply("{7}-{mx}-{1}-{pager7}-{pager}"), "{7}-{mx}-{1}-{[masked]7}-{[masked]}");
}

TEST(SecretMaskTest, Base64OfThePasswordIsMasked) {
    const SecretMask mask(Accounts{{"kv", "hunter2"}});
    EXPECT_EQ(mask.Apply("<= aHVudGVyMg==<CR><LF>"), "<= [masked]<CR><LF>");
}

TEST(SecretMaskTest, PlainCredentialsAreMaskedWithAndWithoutAnIdentity) {
    const SecretMask mask(Accounts{{"kv", "hunter2"}});
    EXPECT_EQ(mask.Apply("AGt2AGh1bnRlcjI="), "[masked]");
    EXPECT_EQ(mask.Apply("a3YAa3YAaHVudGVyMg=="), "[masked]");
}

TEST(SecretMaskTest, ThePasswordAsTrafficLinesRenderItIsMasked) {
    const SecretMask mask(Accounts{{"kv", "tab\there"}});
    EXPECT_EQ(mask.Apply("<= tab<TAB>here"), "<= [masked]");
}

TEST(SecretMaskTest, OfPasswordsThatBeginAlikeTheLongerOneIsMaskedWholly) {
    const SecretMask mask(Accounts{{"a", "pass"}, {"b", "passphrase"}});
    EXPECT_EQ(mask.Apply("passphrase pass"), "[masked] [masked]");
}

TEST(SecretMaskTest, TheMaskItselfIsNotMaskedAgain) {
    const SecretMask mask(Accounts{{"a", "masked"}});
    EXPECT_EQ(mask.Apply("masked"), "[masked]");
}

TEST(SecretMaskTest, AnAccountWithoutAPasswordMasksNothing) {
    const SecretMask mask(Accounts{{"kv", ""}});
    EXPECT_EQ(mask.Apply("{7}-{mx}-{1}-{kv}-{}"), "{7}-{mx}-{1}-{kv}-{}");
}

TEST(SecretMaskTest, APasswordWithinSomethingEncodedIsMaskedAtEachOffset) {
    const SecretMask mask(Accounts{{"kv", "hunter2"}});
    EXPECT_EQ(mask.Apply("aHVudGVyMi4u"), "[masked]4u");          // "hunter2.."
    EXPECT_EQ(mask.Apply("Lmh1bnRlcjIu"), "L[masked]u");          // ".hunter2."
    EXPECT_EQ(mask.Apply("Li5odW50ZXIyLi4="), "Li[masked]Li4=");  // "..hunter2.."
}

TEST(SecretMaskTest, HexadecimalOfThePasswordIsMasked) {
    const SecretMask mask(Accounts{{"kv", "hun:er2"}});
    EXPECT_EQ(mask.Apply("<68756e3a657232> <68756E3A657232>"), "<[masked]> <[masked]>");
}

TEST(SecretMaskTest, ThePasswordInAUrlIsMasked) {
    const SecretMask mask(Accounts{{"kv", "h/n er@"}});
    EXPECT_EQ(mask.Apply("?p=h%2Fn%20er%40&h%2fn%20er%40"), "?p=[masked]&[masked]");
    EXPECT_EQ(mask.Apply("/h/n%20er%40 h%2Fn+er%40 h/n+er%40"), "/[masked] [masked] [masked]");
}

TEST(SecretMaskTest, EncodedFormsInAUrlAreMasked) {
    const SecretMask mask(Accounts{{"kv", "hunter2"}, {"kv", "i>?>o"}});
    EXPECT_EQ(mask.Apply("AGt2AGh1bnRlcjI%3D"), "[masked]");
    EXPECT_EQ(mask.Apply("aT4%2FPm8%3D aT4%2fPm8%3d"), "[masked] [masked]");
    EXPECT_EQ(mask.Apply("-%7Bkv%7D-%7Bhunter2%7D"), "-%7Bkv%7D-%7B[masked]%7D");
}

TEST(SecretMaskTest, AShortPasswordIsNotLookedForInEncodedText) {
    const SecretMask mask(Accounts{{"kv", "abc"}});
    EXPECT_EQ(mask.Apply("616263 YWJjLi4u"), "616263 [masked]Li4u");  // the latter is base64 of the whole
}

TEST(SecretMaskTest, ItsAccountsAreKept) {
    const SecretMask mask(Accounts{{"kv", "hunter2"}});
    ASSERT_EQ(mask.Accounts().size(), 1U);
    EXPECT_EQ(mask.Accounts().front().password, "hunter2");
}

}  // namespace
}  // namespace kvhost
