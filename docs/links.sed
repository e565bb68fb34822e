# Guides of other folders are not part of the reference: a link to one becomes its name.
s#\[([^]]*)\]\(([^)]*/)?(sandbox|kit|tools/[a-z]+)/README\.md\)#\1#g
# A record's name becomes a link by itself where the reference has it.
s|\[([a-z_0-9]+)\]\(#[a-z_0-9]+\)|\1|g
# A place in a guide becomes the guide: places have other names in the reference.
s|\]\(([^)#]+\.md)#[^)]*\)|](\1)|g
# A file that is no guide becomes its name.
s|\[([^]]*)\]\(\.\./[^)]*\.txt\)|\1|g
