// The pointer as the scene layer sees it: position with y counted upward from
// the bottom edge, motion since the last event, the buttons held now and
// before this event, and the keyboard modifiers.
#pragma once

enum MouseButton { kButtonLeft = 0, kButtonMiddle = 1, kButtonRight = 2, kWheelForward = 3,
                   kWheelBackward = 4 };
enum MouseBits { kLeftBit = 1, kMiddleBit = 2, kRightBit = 4, kWheelForwardBit = 8,
                 kWheelBackwardBit = 16 };
enum ModifierBits { kShift = 1, kControl = 2, kAlt = 4 };

struct MouseState {
  int x = 0, y = 0;
  int dx = 0, dy = 0;  // previous minus new
  int buttons = 0;
  int previousButtons = 0;
  int modifiers = 0;

  // Moves the pointer to (x, y); y already counts from the bottom.
  void MoveTo(int newX, int newY) {
    dx = x - newX, dy = y - newY;
    x = newX, y = newY;
  }
  // button -1 is a pure motion: the button set is kept. Any other number
  // outside 0..4 counts as the left button.
  void Press(int button) { Change(button, true); }
  void Release(int button) { Change(button, false); }
  void Motion() { previousButtons = buttons; }

  bool Held(int bits) const { return (buttons & bits) == bits; }
  bool Pressed(int bit) const { return (buttons & bit) && !(previousButtons & bit); }
  bool Released(int bit) const { return !(buttons & bit) && (previousButtons & bit); }
  bool Only(int bits) const { return buttons == bits; }
  bool Control() const { return (modifiers & kControl) != 0; }
  bool ShiftKey() const { return (modifiers & kShift) != 0; }

 private:
  void Change(int button, bool down) {
    previousButtons = buttons;
    if (button < 0) return;
    if (button > kWheelBackward) button = kButtonLeft;
    if (down) {
      buttons |= 1 << button;
    } else {
      buttons &= ~(1 << button);
    }
  }
};
