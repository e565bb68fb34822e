# Guides of other folders are not part of the reference: a link to one becomes its name. So does one to another file.
s#\[([^]]*)\]\(([^)]*/)?(sandbox|kit|tools/[a-z]+)/README\.md(\#[^)]*)?\)#\1#g
s#\[([^]]*)\]\(\.\./[^)]*\.txt\)#\1#g
# A record's name becomes a link by itself where the reference has it.
s|\[([a-z_0-9]+)\]\(#[a-z_0-9]+\)|\1|g
# A link to a guide, or to a place in it, by the name that its page has: by its file's it would fail where the path of the
# tree has a blank.
s#\]\((\.\./|docs/)*([a-z]+)\.md(\#[^)]*)?\)#](@ref md_docs_\2)#g
s#\]\((\.\./|docs/)*([a-z]+)-([a-z]+)\.md(\#[^)]*)?\)#](@ref md_docs_\2_\3)#g
s#\]\((\.\./)?(CONTRIBUTING|CHANGELOG)\.md\)#](@ref md_\2)#g
s#\]\((\.\./)?README\.md\)#](@ref index)#g
