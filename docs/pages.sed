# What Doxygen reads of a page. In the site all pages lie in one folder, and links lead to whole pages.
s#](\.\./#](#g
s#\.md\#[a-z0-9-]*)#.md)#g
