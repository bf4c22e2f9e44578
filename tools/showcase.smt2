; fpsolve showcase: floating-point arithmetic and comparisons in several formats.
(set-logic QF_FP)
(set-info :status sat)
; Float16: a strict ordering chain between -1 and 1, with a subnormal in it.
(declare-const h1 Float16)
(declare-const h2 Float16)
(declare-const h3 Float16)
(assert (fp.lt ((_ to_fp 5 11) RNE (- 1.0)) h1 h2 h3 ((_ to_fp 5 11) RNE 1.0)))
(assert (fp.isSubnormal h2))
; Float32: fp.eq sees -0 and +0 as equal, = tells them apart.
(declare-const z Float32)
(assert (fp.eq z (_ +zero 8 24)))
(assert (not (= z (_ +zero 8 24))))
; Float64: NaN is unordered, yet equal to itself under =.
(declare-const n Float64)
(declare-const x Float64)
(assert (= n (_ NaN 11 53)))
(assert (not (fp.leq n x)))
(assert (fp.geq x ((_ to_fp 11 53) RNE 0.1) (fp.neg x)))
; Float128: an exactly rounded decimal and the value just above it.
(declare-const q Float128)
(define-fun third () Float128 ((_ to_fp 15 113) RTZ (/ 1 3)))
(assert (and (fp.gt q third) (fp.leq q ((_ to_fp 15 113) RTP (/ 1 3)))))
; A custom format and Boolean structure.
(declare-const w (_ FloatingPoint 3 5))
(declare-const big Bool)
(assert (=> big (fp.isInfinite w)))
(assert (xor big (fp.isNegative w)))
(assert (or big (fp.lt w ((_ to_fp 3 5) #b10110000))))
; Arithmetic under a rounding mode the solver picks: 0.1 + 0.2 rounded so
; that it equals 0.3 in Float64, which ties-to-even does not give.
(declare-const m RoundingMode)
(define-fun sum ((a Float64) (b Float64)) Float64 (fp.add m a b))
(assert (= (sum ((_ to_fp 11 53) RNE 0.1) ((_ to_fp 11 53) RNE 0.2)) ((_ to_fp 11 53) RNE 0.3)))
(assert (let ((s (fp.sqrt m (fp.mul m x x)))) (fp.leq s (fp.abs x))))
(check-sat)
(get-model)
(get-value ((fp.abs z) (fp.lt h1 h2) m))
