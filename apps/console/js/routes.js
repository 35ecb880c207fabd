// Pages behind the hash: #/ is the first one, #/variables another. A page that doesn't exist leads to the first. What stands behind a "?"
// belongs to the page.

export function startRoutes(model, names) {
  const follow = () => {
    const [, wanted, query] = /^#?\/?([^?]*)\??(.*)$/s.exec(location.hash);
    model.page = names.includes(wanted) ? wanted : names[0];
    model.query = query;
    for (const link of document.querySelectorAll("#pages a")) {
      if (link.dataset.page === model.page) link.setAttribute("aria-current", "page");
      else link.removeAttribute("aria-current");
    }
    model.changed();
  };
  window.addEventListener("hashchange", follow);
  document.getElementById("skip").addEventListener("click", (event) => {
    event.preventDefault();
    document.getElementById("main").focus();
  });
  follow();
}
