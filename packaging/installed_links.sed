# sed -E: the links of a document as they are where it is installed. What is not installed is named
# without a link, and pictures are left out.
s#\]\(docs/((archive|consumers|documents|operations)\.md(\#[^)]*)?|samples/README\.md)\)#](\1)#g
s#\]\((\.\./)?packaging/systemd/examples/([^)]*)\)#](examples/\2)#g
s#\]\((\.\./)?packaging/prometheus/([^)]*)\)#](../../quillmere/prometheus/\2)#g
s#\]\(\.\./README\.md\)#](README.md)#g
s#\]\((\.\./)?schemas(/[^)]*)?\)#](../../quillmere/schemas\2)#g
/^!\[/,/^$/d
s#\]\((\.\./)?(examples/(clickhouse|node|python|sqlite)/[^)]*)\)#](./\2)#g
s#\[([^]]*)\]\((man/quillmere(-archive|-report)?\.1|CHANGELOG\.md)\)#\1#g
s#\[([^]]*)\]\((ARCHITECTURE\.md|CONTRIBUTING\.md|(bench|examples|standin|tests)(/[^)]*)?)\)#\1 (in the sources)#g
