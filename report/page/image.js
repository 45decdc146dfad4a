// One image: its choice, what the archive says of it, its folders and its entries.

/** What the archive says of an image, as (name, text). */
function factsOf(image) {
  const facts = [
    ["Backup id", image.backup_id],
    ["Series", nameOf(seriesOf(image))],
    ["Backup", moment(image.time)],
    ["Size as listed", `${image.size} (${grouped(BigInt(image.size_bytes))} bytes)`],
    ["Files as listed", grouped(image.files)],
    ["File entries", grouped(image.entries)],
    ["Exported", moment(image.exported)],
    ["Document", `${grouped(BigInt(image.document_bytes))} bytes, stored in `
      + `${grouped(BigInt(image.stored_bytes))}`],
    ["Backup set", image.sets.map((set) => `${set.backup_id} of ${moment(set.time)}`).join(", ")
      || "in none: its parent image is still to come, or was never listed"],
  ];
  if (image.warned) facts.push(["Warnings", warningOf(image)]);
  return facts;
}

/** The choice of an image: client, then policy, then date. Typing leaves what has the words. */
function imageChoice(model, open) {
  const [clients, policies, dates] = ["image-client", "image-policy", "image-date"].map($);
  const wordsOfImage = (image) => image.words ??=
    `${nameOf(seriesOf(image))} ${moment(image.time)} ${image.backup_id}`.toLowerCase();
  let matching = model.images, current, opened, timer;

  function fill(select, options, value) {
    select.replaceChildren(...options.map(([key, text]) => make("option", {value: key, text: seen(text)})));
    select.value = value;
  }
  const unique = (images, key) => [...new Set(images.map((image) => image[key]))];
  const named = (text) => [text, text || "(none)"];

  /** Lets the choice show an image, with those beside it. */
  function showChoice(image) {
    current = image;
    const of_client = matching.filter((one) => one.client === image.client);
    const of_policy = of_client.filter((one) => one.policy === image.policy);
    fill(clients, unique(matching, "client").map(named), image.client);
    fill(policies, unique(of_client, "policy").map(named), image.policy);
    fill(dates, of_policy.map((one) => [String(one.number),
      `${moment(one.time)} \u00B7 ${one.schedule} \u00B7 ${plural(one.entries, "entry", "entries")}`
      + (one.block < 0 ? ", not on this page" : "")]), String(image.number));
  }

  /** The image to begin with: one whose entries are on the page, if there is any. */
  const first = (images) => images.find((image) => image.block >= 0) ?? images[0];
  const choose = (images) => open(first(images));

  clients.addEventListener("change", () =>
    choose(matching.filter((image) => image.client === clients.value)));
  policies.addEventListener("change", () => choose(matching.filter((image) =>
    image.client === clients.value && image.policy === policies.value)));
  dates.addEventListener("change", () => open(model.images[Number(dates.value)]));
  $("image-filter").addEventListener("input", () => {
    const words = wordsOf($("image-filter").value);
    const found = model.images.filter((image) => holdsWords(wordsOfImage(image), words));
    $("image-none").hidden = found.length > 0;
    $("image-none").replaceChildren();
    if (found.length === 0) {
      show($("image-none"), `No image has \u201C${$("image-filter").value}\u201D in its client, policy, `
        + "schedule, date or id. Type less of it.");
      return;
    }
    matching = found;
    const next = found.includes(current) ? current : first(found);
    showChoice(next);
    clearTimeout(timer);
    if (next !== opened) timer = setTimeout(() => open(next), 150);  // once the typing pauses
  });
  return (image) => {
    opened = image;
    if (!matching.includes(image)) {
      matching = model.images;
      $("image-filter").value = "";
    }
    showChoice(image);
  };
}

function imageView(model) {
  let current, start, here, skipped = 0, measure = "bytes";
  const showChoice = imageChoice(model, openImage);
  const table = entryTable(() => columnsOf(`others-${current.block}`, OTHERS, current.entries));
  const drawTreemap = treemapView((folder, past) => openFolder(folder ?? above(here), past));

  /** The folder that is shown above this one. */
  function above(folder) {
    if (folder === start) return folder;
    let one = folder.parent;
    while (one !== start && unwrapped(one) !== one) one = one.parent;
    return one;
  }

  function showCrumbs() {
    const way = [here];
    while (way[0] !== start) way.unshift(above(way[0]));
    const crumbs = way.map((one, at) => {
      const name = at > 0 ? one.path.slice(way[at - 1].path.length) : one.path || "All entries";
      const crumb = make("button", {type: "button", onclick: () => {
        openFolder(one, 0);
        $("crumbs").lastChild.focus();
      }}, name);
      return crumb;
    });
    if (skipped > 0) {
      crumbs.push(make("button", {type: "button"}, `without the ${plural(skipped, "largest", "largest")}`));
    }
    crumbs.at(-1).setAttribute("aria-current", "location");
    $("crumbs").replaceChildren(...crumbs);
  }

  function openFolder(folder, past) {
    here = folder;
    skipped = past;
    showCrumbs();
    drawTreemap(here, skipped, measure);
    table.narrow(here);
  }

  const busy = (is_busy) => document.querySelector("main").setAttribute("aria-busy", String(is_busy));

  async function openImage(image) {
    current = image;
    showChoice(image);
    $("image-facts").replaceChildren(...factsOf(image).flatMap(([name, text]) =>
      [make("dt", {}, name), make("dd", {}, text)]));
    $("image-entries").hidden = image.block < 0;
    $("image-absent").hidden = image.block >= 0;
    if (image.block < 0) {
      $("image-absent").replaceChildren();
      show($("image-absent"), image.entries === 0 ? "This image has no entries."
        : "The file entries of this image are not on this page. This makes one with them: "
          + `quillmere-report --image ${image.backup_id} ${model.archive}`);
      busy(false);
      return;
    }
    busy(true);
    const columns = await columnsOf(`table-${image.block}`, IN_TABLE, image.entries);
    if (current !== image) return;  // another one was chosen meanwhile
    const lengths = lengthsOf(columns.length);
    const root = foldersOf(columns.path, lengths);
    $("image-total").textContent =
      `${plural(root.count, "entry", "entries")}, ${grouped(root.bytes)} bytes`;
    $("search").value = "";
    table.fill(columns, lengths);
    start = unwrapped(root);
    openFolder(start, 0);
    busy(false);
  }

  for (const input of document.querySelectorAll('input[name="measure"]')) {
    input.addEventListener("change", () => {
      measure = input.value;
      drawTreemap(here, skipped = 0, measure);
      showCrumbs();
    });
  }
  return openImage;
}
