// What scrolls sideways can be reached by the keyboard.
addEventListener("load", () => {
    for (const box of document.querySelectorAll("pre, .table-wrapper, .output")) {
        if (box.scrollWidth > box.clientWidth || box.scrollHeight > box.clientHeight) {
            box.tabIndex = 0;
        }
    }
});
// The search shows the beginnings of the pages that it finds, which a browser gives it from a server alone.
if (location.protocol === "file:") {
    DOCUMENTATION_OPTIONS.SHOW_SEARCH_SUMMARY = false;
}
