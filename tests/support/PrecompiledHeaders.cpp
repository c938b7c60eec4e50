// Carries the headers that the tests have in common, compiled once.
