// Benchmark, not a test: 10 single keystrokes in big.html (2 MiB), each timed
// to the preview showing the changed page, painted.
scenario((t) => benchKeystrokes(t, 'big.html', 10));
