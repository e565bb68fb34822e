# Guides of other folders are not part of the reference: a link to one becomes its name.
s#\[([^]]*)\]\(([^)]*/)?(sandbox|kit|tools/[a-z]+)/README\.md\)#\1#g
