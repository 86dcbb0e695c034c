# Four-LED test body, written in centimetres.
# The scale line turns the positions after it into millimetres.
0, 0 0 0
s, 10
1, 10 0 0
# a comment between markers
2, 0 10 0
3, 0 0 10
