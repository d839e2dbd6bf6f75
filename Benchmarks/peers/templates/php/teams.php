<html>
<head><title><?= $title ?></title></head>
<body>
<h1><?= $title ?></h1>
<ul>
<?php foreach ($teams as $index => $team): ?>
<li<?php if ($index === 0): ?> class="champion"<?php endif ?>><b><?= $team['name'] ?></b>: <?= $team['score'] ?></li>
<?php endforeach ?>
</ul>
<p>Two points for a win, one for a draw.</p>
</body>
</html>
