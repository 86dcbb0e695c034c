# alignment frame: L of 4 LEDs lying on the floor, long arm +X, short arm +Z, mm
13, 0 0 0
14, 300 0 0
15, 700 0 0
16, 0 0 500
