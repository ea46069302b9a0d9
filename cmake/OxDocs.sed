# Turns the comments of the public headers into those that Doxygen reads. Headers are for people who
# read headers; nothing in them is written for a generator.

# The first one is about the file.
1s|^// |/// \\file\n/// |
# What is set off by three blanks is an example or a table: Markdown wants four more than text has.
s|^( *)//   |\1///     |
s|^( *)//( .*)?$|\1///\2|
# Behind a declaration, but for what closes a namespace or an include guard.
/^ *[#}]/!s|([^ /].*[^ ]) +// |\1 ///< |
