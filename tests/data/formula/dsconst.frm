PC_COV(B1..B4 | 'scene',R1,B2,1) + COV_EVAL(I1,'Band 2' | ) - NRLINES() % 2
