# Tells Doxygen that the comment at a header's top is the file's: the first empty line is right behind it.
0,/^$/s|^$|/// \\file|
