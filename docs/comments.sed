# The comments of the C++ headers as Doxygen wants them marked: at the head of a file, before a declaration. A title with
# a rule behind it is for those who read the header.
1s#^// #/// @file\n/// #
/^ *\/\/.* -----/b
# Of the standard library's, which is not in the reference.
/^template .* std::ranges::enable_borrowed_range</d
s#^( *)//( |$)#\1///\2#
