#include "voice/option_tap.h"

#include <gtest/gtest.h>

#include <string>

#include "core/fake_loop.h"

namespace {

// Drives the gesture on a fake clock and records what it decided, one letter per callback:
// O open, S talk start, E talk end.
struct Gesture {
  FakeLoop loop;
  OptionTap tap{loop, ""};
  std::string seen;

  Gesture() {
    tap.onOpen = [this] { seen += 'O'; };
    tap.onTalkStart = [this] { seen += 'S'; };
    tap.onTalkEnd = [this] { seen += 'E'; };
  }
  // Alt down for `held` seconds, then up, then `gap` seconds of nothing.
  Gesture& tapAlt(double held, double gap = 0) {
    tap.altPressed();
    loop.advance(held);
    tap.altReleased();
    loop.advance(gap);
    return *this;
  }
};

TEST(OptionTapTest, DoubleTapWithinTheWindowOpens) {
  EXPECT_EQ(Gesture().tapAlt(0.05, 0.31).tapAlt(0.05).seen, "O");
  EXPECT_EQ(Gesture().tapAlt(0.05, 0.33).tapAlt(0.05).seen, "");
  // A third tap after a double tap starts afresh; a fourth completes the next pair.
  EXPECT_EQ(Gesture().tapAlt(0.05, 0.1).tapAlt(0.05, 0.1).tapAlt(0.05, 0.1).seen, "O");
  EXPECT_EQ(Gesture().tapAlt(0.05, 0.1).tapAlt(0.05, 0.1).tapAlt(0.05, 0.1).tapAlt(0.05).seen,
            "OO");
}

TEST(OptionTapTest, HoldingStartsAndReleasingEndsTalk) {
  EXPECT_EQ(Gesture().tapAlt(0.44).seen, "");
  Gesture g;
  g.tap.altPressed();
  g.loop.advance(0.46);
  EXPECT_EQ(g.seen, "S");
  EXPECT_TRUE(g.tap.talking());
  g.tap.keyPressed();  // typing while talking does not end it
  g.loop.advance(2);
  g.tap.altReleased();
  EXPECT_EQ(g.seen, "SE");
  // A tap right after push-to-talk is a first tap, not the second of a pair.
  EXPECT_EQ(g.tapAlt(0.05, 0.1).tapAlt(0.05, 0.1).seen, "SEO");
  // The second press of a pair, held, talks instead of opening.
  EXPECT_EQ(Gesture().tapAlt(0.05, 0.1).tapAlt(0.6).seen, "SE");
}

TEST(OptionTapTest, AltAsAModifierSpoilsTheGesture) {
  // Alt with a letter, then a clean tap: no double tap, the spoiled tap does not count.
  Gesture letter;
  letter.tap.altPressed();
  letter.tap.keyPressed();
  letter.loop.advance(0.6);  // nor is it a hold
  letter.tap.altReleased();
  letter.loop.advance(0.1);
  letter.tapAlt(0.05, 0.1);
  EXPECT_EQ(letter.seen, "");
  letter.tapAlt(0.05);
  EXPECT_EQ(letter.seen, "O");

  // Alt+Shift, in either order; Alt pressed while Shift is still held.
  Gesture shift;
  shift.tapAlt(0.05, 0.1);
  shift.tap.altPressed();
  shift.tap.modifierPressed();
  shift.tap.modifierReleased();
  shift.tap.altReleased();
  shift.tap.modifierPressed();
  shift.tapAlt(0.05, 0.05).tapAlt(0.05);
  shift.tap.modifierReleased();
  EXPECT_EQ(shift.seen, "");
  shift.loop.advance(1);
  EXPECT_EQ(shift.tapAlt(0.05, 0.1).tapAlt(0.05).seen, "O");

  // Shift pressed during push-to-talk ends it.
  Gesture talk;
  talk.tap.altPressed();
  talk.loop.advance(0.5);
  talk.tap.modifierPressed();
  EXPECT_EQ(talk.seen, "SE");
  talk.tap.altReleased();
  EXPECT_EQ(talk.seen, "SE");
}

}  // namespace
