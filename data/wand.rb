# calibration wand: 8 LEDs along +X, uneven spacing, mm
0, -450 0 0
1, -350 0 0
2, -180 0 0
3, -40 0 0
4, 75 0 0
5, 235 0 0
6, 360 0 0
7, 450 0 0
