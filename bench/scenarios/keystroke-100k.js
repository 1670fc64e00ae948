// Benchmark, not a test: 20 single keystrokes in mid.html (100 KiB), each
// timed to the preview showing the changed page, painted.
scenario((t) => benchKeystrokes(t, 'mid.html', 20));
