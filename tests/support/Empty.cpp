// A library without anything in it.
