<?php
$price = fn($amount) => $amount . ' ' . $currency;
$amounts = array_map(fn($product) => $product['price']['amount'], $products);
?>
<!DOCTYPE html>
<html lang="en">
<head>
  <meta charset="utf-8">
  <title><?= $shop['name'] . ', ' . $shop['city'] ?></title>
</head>
<body>
<h1><?= $shop['name'] ?></h1>
<p><?= count($products) ?> products, from <?= $price(min($amounts)) ?> to <?= $price(max($amounts)) ?></p>
<?php foreach ($products as $index => $product): ?>
<article id="product-<?= $index + 1 ?>"<?php if (preg_match('/^(SALE|LAST)-\d+$/', $product['sku'])): ?> class="sale"<?php endif ?>>
  <h2><?= $product['name'] ?></h2>
  <p class="maker"><?= $product['maker']['name'] . ', ' . $product['maker']['city'] ?></p>
  <p class="price">Pack of <?= $product['price']['pack'] ?>: <?= $price($product['price']['amount'] * $product['price']['pack']) ?></p>
<?php if ($product['stock']['pieces'] > 20): ?>
  <p class="stock">In stock</p>
<?php elseif ($product['stock']['pieces'] > 0): ?>
  <p class="stock">Only <?= $product['stock']['pieces'] ?> left</p>
<?php else: ?>
  <p class="stock">Back in <?= $product['stock']['expected'] ?></p>
<?php endif ?>
</article>
<?php endforeach ?>
</body>
</html>
