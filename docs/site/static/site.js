// The button for light and dark: first as the system has it, then the other one, and the first again.
(() => {
  const next = () => {
    const isDark = matchMedia("(prefers-color-scheme: dark)").matches;
    const order = isDark ? ["auto", "light", "dark"] : ["auto", "dark", "light"];
    return order[(order.indexOf(document.body.dataset.theme) + 1) % order.length];
  };
  document.documentElement.classList.remove("no-js");
  for (const button of document.querySelectorAll(".theme-toggle")) {
    button.addEventListener("click", () => {
      document.body.dataset.theme = next();
      localStorage.setItem("theme", document.body.dataset.theme);
    });
  }
})();
