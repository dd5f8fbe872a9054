SIGMA(I1..I3 | I? * 2)
